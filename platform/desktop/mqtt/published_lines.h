#pragma once

#include <optional>
#include <string>
#include <vector>

namespace desktop {

/** The files of lines that a broker is given, as the package manifest names them. */
struct PublishedLines {
    std::string folder;            /**< below the root of the camera's files */
    std::vector<std::string> live; /**< members of lines whose newest values are told to who looks on */
};

/**
 * Reads "published_lines" from a package manifest; nothing when the manifest has none. Throws std::runtime_error,
 * naming the file, what was expected and what came, when it cannot be read.
 */
std::optional<PublishedLines> readPublishedLines(const std::string& manifest);

}  // namespace desktop
