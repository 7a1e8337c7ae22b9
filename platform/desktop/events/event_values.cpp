#include "desktop/events/event_values.h"

#include <algorithm>
#include <string_view>

namespace desktop {
namespace {

constexpr const char* kTopicPrefix = "tnsaxis:topic";

nlohmann::ordered_json elementTree(const Element& element) {
    nlohmann::ordered_json tree = {{"name", element.name}};
    if (!element.body.empty()) {
        tree["body"] = element.body;
    }
    for (const auto& child : element.children) {
        tree["children"].push_back(elementTree(*child));
    }
    return tree;
}

bool isTopic(const std::string& name) {
    return name.rfind(kTopicPrefix, 0) == 0;
}

/** The values of the topic keys, in order. */
std::vector<std::string> topicLevels(const KeyValues& declaration) {
    std::vector<std::string> levels;
    for (const auto& [name, key] : declaration) {
        if (isTopic(name)) {
            levels.push_back(key.value.get<std::string>());
        }
    }
    return levels;
}

}  // namespace

std::string fullName(const char* key, const char* nameSpace) {
    return nameSpace == nullptr ? std::string(key) : std::string(nameSpace) + ":" + key;
}

const char* typeName(AXEventValueType type) {
    switch (type) {
        case AX_VALUE_TYPE_INT:
            return "int";
        case AX_VALUE_TYPE_BOOL:
            return "bool";
        case AX_VALUE_TYPE_DOUBLE:
            return "double";
        case AX_VALUE_TYPE_STRING:
            return "string";
        case AX_VALUE_TYPE_ELEMENT:
            return "element";
    }
    return "unknown";
}

nlohmann::ordered_json readValue(const void* value, AXEventValueType type) {
    if (value == nullptr) {
        return nullptr;
    }
    switch (type) {
        case AX_VALUE_TYPE_INT:
            return *static_cast<const gint*>(value);
        case AX_VALUE_TYPE_BOOL:
            return *static_cast<const gboolean*>(value) != FALSE;
        case AX_VALUE_TYPE_DOUBLE:
            return *static_cast<const gdouble*>(value);
        case AX_VALUE_TYPE_STRING:
            return static_cast<const gchar*>(value);
        case AX_VALUE_TYPE_ELEMENT:
            return elementTree(*static_cast<const Element*>(value));
    }
    return nullptr;
}

std::string checkDeclaration(const KeyValues& keys) {
    int topics = 0;
    for (const auto& [name, key] : keys) {
        if (!isTopic(name)) {
            continue;
        }
        const std::string expected = kTopicPrefix + std::to_string(topics++);
        if (name != expected) {
            return "expected the topic key " + expected + ", got " + name;
        }
        if (key.type != AX_VALUE_TYPE_STRING || !key.hasValue) {
            return "expected a string value for " + name;
        }
    }
    return topics == 0 ? std::string("expected a topic key tnsaxis:topic0, got none") : std::string();
}

std::string checkEvent(const KeyValues& declaration, const KeyValues& event) {
    for (const auto& [name, key] : event) {
        const auto declared = declaration.find(name);
        if (declared == declaration.end() || !declared->second.isData) {
            return "the declaration has no data key " + name;
        }
        if (declared->second.type != key.type) {
            return std::string("expected type ") + typeName(declared->second.type) + " for " + name + ", got " +
                   typeName(key.type);
        }
    }
    for (const auto& [name, key] : declaration) {
        if (key.isData && !event.contains(name)) {
            return "the event lacks the data key " + name;
        }
    }
    return {};
}

std::string topicPath(const KeyValues& declaration) {
    std::string path;
    for (const std::string& level : topicLevels(declaration)) {
        path += (path.empty() ? "" : "/") + level;
    }
    return path;
}

std::string mqttTopic(const KeyValues& declaration) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    std::string path;
    for (std::string level : topicLevels(declaration)) {
        std::replace_if(
            level.begin(), level.end(), [&](char character) { return kPlain.find(character) == kPlain.npos; }, '_');
        path += (path.empty() ? "" : "/") + (level.empty() ? "_" : level);
    }
    return path;
}

}  // namespace desktop
