#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/** What the package manifest says of a parameter. */
namespace desktop {

struct ParameterDefault {
    std::string name;
    std::string value;
};

/**
 * Reads the parameters' names and default values from a package manifest, in its order. Throws std::runtime_error,
 * naming the file, what was expected and what came, when it cannot be read.
 */
std::vector<ParameterDefault> readManifestDefaults(const std::string& path);

/** The parameters that say which of the application's streams shows nobody. */
struct AnonymisedStreamNames {
    std::string on;              /**< "true" switches it on */
    std::string resolution;      /**< "WxH" */
    std::string rivalOn;         /**< the same for a stream that is not anonymised, though its size be the same; */
    std::string rivalResolution; /**< empty: there is none */
};

/**
 * Reads "anonymised_stream" from a package manifest; nothing when the manifest has none. Throws like
 * readManifestDefaults.
 */
std::optional<AnonymisedStreamNames> readAnonymisedStream(const std::string& path);

/**
 * Reads from a package manifest the name of the parameter that holds the lowest score that counts, "sensitivity" in
 * "inference"; nothing when the manifest has none. Throws like readManifestDefaults.
 */
std::optional<std::string> readSensitivityName(const std::string& path);

/**
 * Reads "class_parameters" from a package manifest: for each class's name the parameter that is "true" when the class
 * is counted. Empty when the manifest has none. Throws like readManifestDefaults.
 */
std::map<std::string, std::string> readClassParameters(const std::string& path);

}  // namespace desktop
