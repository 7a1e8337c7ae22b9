#include "base/json_reader.h"

#include <algorithm>

namespace json {
namespace {

constexpr size_t kShownOfDocument = 40;

}  // namespace

void refuse(const std::string& key, const std::string& expected, const Value& got) {
    throw std::runtime_error("\"" + key + "\": expected " + expected + ", got " + got.dump());
}

std::string fullKey(const std::string& object, const std::string& key) {
    return object.empty() ? key : object + "." + key;
}

double numberBetween(double lowest, double highest, const std::string& key, const Value& value) {
    if (!value.is_number() || value.get<double>() < lowest || value.get<double>() > highest) {
        refuse(key, "a number from " + Value(lowest).dump() + " to " + Value(highest).dump(), value);
    }
    return value.get<double>();
}

int integerBetween(int lowest, int highest, const std::string& key, const Value& value) {
    if (!value.is_number_integer() || value.get<double>() < lowest || value.get<double>() > highest) {
        refuse(key, "a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest), value);
    }
    return value.get<int>();
}

bool flag(const std::string& key, const Value& value) {
    if (!value.is_boolean()) {
        refuse(key, "true or false", value);
    }
    return value.get<bool>();
}

std::string text(const std::string& key, const Value& value) {
    if (!value.is_string()) {
        refuse(key, "a text", value);
    }
    return value.get<std::string>();
}

const Value& member(const Value& object, const std::string& key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw std::runtime_error("expected a key \"" + key + "\"");
    }
    return *found;
}

void readObject(const std::string& object, const Value& value, const Readers& readers) {
    if (!value.is_object()) {
        if (object.empty()) {
            const std::string came = value.is_discarded() ? "none" : value.dump().substr(0, kShownOfDocument);
            throw std::runtime_error("expected a JSON object, got " + came);
        }
        refuse(object, "an object", value);
    }
    for (const auto& [key, part] : value.items()) {
        const auto reader = std::find_if(readers.begin(), readers.end(),
                                         [&wanted = key](const auto& candidate) { return candidate.first == wanted; });
        if (reader == readers.end()) {
            throw std::runtime_error("unknown key \"" + fullKey(object, key) + "\"; known: " + namesOf(readers));
        }
        reader->second(fullKey(object, key), part);
    }
}

}  // namespace json
