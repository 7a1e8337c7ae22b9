#include "desktop/parameters/declarations.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace desktop {
namespace {

nlohmann::json readManifest(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the package manifest " + path);
    }
    return nlohmann::json::parse(file, nullptr, false);
}

}  // namespace

std::vector<ParameterDefault> readManifestDefaults(const std::string& path) {
    const nlohmann::json manifest = readManifest(path);
    const auto parameters = manifest.is_object() ? manifest.find("parameters") : manifest.end();
    if (!manifest.is_object() || parameters == manifest.end() || !parameters->is_array()) {
        throw std::runtime_error(path + ": expected a JSON object with a list \"parameters\"");
    }
    std::vector<ParameterDefault> defaults;
    for (const nlohmann::json& parameter : *parameters) {
        const auto name = parameter.find("name");
        const auto value = parameter.find("default");
        if (name == parameter.end() || value == parameter.end() || !name->is_string() || !value->is_string()) {
            throw std::runtime_error(path + ": expected texts \"name\" and \"default\" in a parameter, got " +
                                     parameter.dump());
        }
        defaults.push_back({name->get<std::string>(), value->get<std::string>()});
    }
    return defaults;
}

std::optional<AnonymisedStreamNames> readAnonymisedStream(const std::string& path) {
    const nlohmann::json manifest = readManifest(path);
    const auto stream = manifest.is_object() ? manifest.find("anonymised_stream") : manifest.end();
    if (stream == manifest.end()) {
        return std::nullopt;
    }
    const auto textOf = [&](const nlohmann::json& choice, const char* key) {
        if (!choice.is_object() || !choice.contains(key) || !choice[key].is_string()) {
            throw std::runtime_error(
                path + ": expected texts \"on\" and \"resolution\" in \"anonymised_stream\", got " + choice.dump());
        }
        return choice[key].get<std::string>();
    };
    AnonymisedStreamNames names = {textOf(*stream, "on"), textOf(*stream, "resolution"), "", ""};
    if (const auto rival = stream->find("yields_to"); rival != stream->end()) {
        names.rivalOn = textOf(*rival, "on");
        names.rivalResolution = textOf(*rival, "resolution");
    }
    return names;
}

std::optional<std::string> readSensitivityName(const std::string& path) {
    const nlohmann::json manifest = readManifest(path);
    const auto inference = manifest.is_object() ? manifest.find("inference") : manifest.end();
    if (inference == manifest.end()) {
        return std::nullopt;
    }
    if (!inference->is_object() || !inference->contains("sensitivity") || !(*inference)["sensitivity"].is_string()) {
        throw std::runtime_error(path + ": expected a text \"sensitivity\" in \"inference\", got " + inference->dump());
    }
    return (*inference)["sensitivity"].get<std::string>();
}

std::map<std::string, std::string> readClassParameters(const std::string& path) {
    const nlohmann::json manifest = readManifest(path);
    const auto classes = manifest.is_object() ? manifest.find("class_parameters") : manifest.end();
    if (classes == manifest.end()) {
        return {};
    }
    std::map<std::string, std::string> names;
    for (const auto& [name, parameter] : classes->items()) {
        if (!parameter.is_string()) {
            throw std::runtime_error(path + ": expected names of parameters in \"class_parameters\", got " +
                                     classes->dump());
        }
        names[name] = parameter.get<std::string>();
    }
    return names;
}

}  // namespace desktop
