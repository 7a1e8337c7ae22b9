#include "desktop/inference/engine/model_card.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "base/json_reader.h"

namespace desktop {
namespace {

using json::flag;
using json::integerBetween;
using json::NameTable;
using json::numberBetween;
using json::oneOf;
using json::Readers;
using json::readObject;
using json::refuse;
using Json = json::Value;

std::string textOf(const std::string& key, const Json& value) {
    std::string text = json::text(key, value);
    if (text.empty()) {
        refuse(key, "a text", value);
    }
    return text;
}

std::vector<std::string> readFiles(const std::string& key, const Json& value) {
    if (!value.is_array() || value.empty() || value.size() > 2) {
        refuse(key, "a list of one or two file names", value);
    }
    std::vector<std::string> files;
    for (const Json& file : value) {
        files.push_back(textOf(key, file));
    }
    return files;
}

std::array<double, 3> readMean(const std::string& key, const Json& value) {
    if (!value.is_array() || value.size() != 3) {
        refuse(key, "a list of three numbers", value);
    }
    std::array<double, 3> mean{};
    for (size_t i = 0; i < mean.size(); ++i) {
        mean[i] = numberBetween(-255, 255, key, value[i]);
    }
    return mean;
}

ObjectClass readClass(const std::string& key, const Json& value) {
    const auto known = value.is_string() ? objectClassFromName(value.get<std::string>()) : std::nullopt;
    if (!known) {
        refuse(key, "one of " + objectClassNames(), value);
    }
    return *known;
}

std::map<int, ObjectClass> readClassMap(const std::string& key, const Json& value) {
    if (!value.is_object() || value.empty()) {
        refuse(key, R"(an object such as {"0": "Person"})", value);
    }
    std::map<int, ObjectClass> classes;
    for (const auto& [index, name] : value.items()) {
        int number = -1;
        const char* end = index.data() + index.size();
        if (std::from_chars(index.data(), end, number).ptr != end || number < 0) {
            refuse(key, "class indices of the network as keys", index);
        }
        classes[number] = readClass(json::fullKey(key, index), name);
    }
    return classes;
}

void readNetworkInput(const std::string& key, const Json& value, NetworkCard& card) {
    constexpr int kLargestSide = 4096;
    readObject(key, value,
               {{"width", [&](auto& k, auto& v) { card.width = integerBetween(1, kLargestSide, k, v); }},
                {"height", [&](auto& k, auto& v) { card.height = integerBetween(1, kLargestSide, k, v); }},
                {"order",
                 [&](auto& k, auto& v) {
                     card.swapToBgr = oneOf(NameTable<bool>{{"RGB", false}, {"BGR", true}}, k, v);
                 }},
                {"scale", [&](auto& k, auto& v) { card.scale = numberBetween(1e-6, 1000, k, v); }},
                {"mean", [&](auto& k, auto& v) { card.mean = readMean(k, v); }},
                {"fit", [&](auto& k, auto& v) {
                     card.fit = oneOf(NameTable<Fit>{{"stretch", Fit::Stretch}, {"letterbox", Fit::Letterbox}}, k, v);
                 }}});
    if (card.width == 0 || card.height == 0) {
        refuse(key, "\"width\" and \"height\" of the network's input", value);
    }
}

void readMotion(const std::string& key, const Json& value, MotionCard& card) {
    readObject(key, value,
               {{"contrast", [&](auto& k, auto& v) { card.contrast = numberBetween(2, 128, k, v); }},
                {"smallestArea", [&](auto& k, auto& v) { card.smallestArea = numberBetween(0.0005, 0.5, k, v); }},
                {"absorbCycles", [&](auto& k, auto& v) { card.absorbCycles = integerBetween(10, 1000000, k, v); }},
                {"shadows", [&](auto& k, auto& v) { card.ignoreShadows = flag(k, v); }},
                {"classes", [&](auto& k, auto& v) {
                     if (!v.is_array() || v.empty()) {
                         refuse(k, "a list of class names", v);
                     }
                     card.classes.clear();
                     for (const Json& name : v) {
                         card.classes.push_back(readClass(k, name));
                     }
                 }}});
}

Readers networkReaders(NetworkCard& card) {
    NameTable<const OutputLayout*> decoders;
    for (const OutputLayout* const layout : outputLayouts()) {
        decoders.emplace_back(layout->name(), layout);
    }
    return {{"network", [&](auto& k, auto& v) { card.files = readFiles(k, v); }},
            {"input", [&](auto& k, auto& v) { readNetworkInput(k, v, card); }},
            {"decoder", [&card, decoders](auto& k, auto& v) { card.decoder = oneOf(decoders, k, v); }},
            {"classes", [&](auto& k, auto& v) { card.classes = readClassMap(k, v); }},
            {"threshold", [&](auto& k, auto& v) { card.threshold = static_cast<float>(numberBetween(0, 1, k, v)); }},
            {"sensitivity",
             [&](auto& k, auto& v) { card.sensitivity = static_cast<float>(numberBetween(0.01, 0.99, k, v)); }},
            {"tiles", [&](auto& k, auto& v) { card.tiles = integerBetween(1, 4, k, v); }},
            {"nms", [&](auto& k, auto& v) { card.overlap = static_cast<float>(numberBetween(0, 1, k, v)); }}};
}

void requireKeys(const Json& document, const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        if (!document.contains(key)) {
            throw std::runtime_error("\"" + key + "\" is missing");
        }
    }
}

}  // namespace

ModelCard parseModelCard(const std::string& text) {
    const Json document = Json::parse(text, nullptr, false);
    if (document.is_discarded()) {
        throw std::runtime_error("expected a model card in JSON, got \"" + text.substr(0, 40) + "\"");
    }
    ModelCard card;
    if (document.is_object()) {
        requireKeys(document, {"engine"});
        const NameTable<EngineKind> engines = {{"opencv-dnn", EngineKind::OpencvDnn}, {"motion", EngineKind::Motion}};
        card.engine = oneOf(engines, "engine", document["engine"]);
    }
    Readers readers = {
        {"name", [&](auto& k, auto& v) { card.name = textOf(k, v); }},
        {"engine", [](auto&, auto&) {}},
        {"steady", [&](auto& k, auto& v) { card.steady = flag(k, v); }},
        {"tensor", [&](auto& k, auto& v) {
             readObject(
                 k, v,
                 {{"width", [&](auto& kk, auto& vv) { card.tensorWidth = integerBetween(64, 4096, kk, vv); }},
                  {"height", [&](auto& kk, auto& vv) { card.tensorHeight = integerBetween(64, 4096, kk, vv); }}});
         }}};
    if (card.engine == EngineKind::Motion) {
        readers.emplace_back("motion", [&](auto& k, auto& v) { readMotion(k, v, card.motion); });
        readObject("", document, readers);
        return card;
    }
    const Readers more = networkReaders(card.network);
    readers.insert(readers.end(), more.begin(), more.end());
    readObject("", document, readers);
    requireKeys(document, {"network", "input", "decoder", "classes"});
    return card;
}

}  // namespace desktop
