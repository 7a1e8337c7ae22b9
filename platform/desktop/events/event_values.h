#pragma once

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <axsdk/axevent.h>

/** The values of which declarations and events are made. */
namespace desktop {

struct Element {
    std::string name;
    std::string body;
    std::vector<std::shared_ptr<Element>> children;
};

/** One key of a set. */
struct KeyValue {
    AXEventValueType type = AX_VALUE_TYPE_STRING;
    bool hasValue = false;
    nlohmann::ordered_json value; /**< as it stands in events.jsonl */
    bool isData = false;
    std::string keyNiceName;
    std::string valueNiceName;
};

/** Keys with their namespace, "tnsaxis:topic0", or bare, "active"; in order of name. */
using KeyValues = std::map<std::string, KeyValue>;

std::string fullName(const char* key, const char* nameSpace);

/** The word for a type in messages. */
const char* typeName(AXEventValueType type);

/** Reads a value through the pointer type that its value type says; a null pointer gives null. */
nlohmann::ordered_json readValue(const void* value, AXEventValueType type);

/** Checks a set as a declaration; returns what is wrong with it, empty when nothing is. */
std::string checkDeclaration(const KeyValues& keys);

/** Checks an event against its declaration; returns what is wrong with it, empty when nothing is. */
std::string checkEvent(const KeyValues& declaration, const KeyValues& event);

/** The declaration's topics, joined by slashes. */
std::string topicPath(const KeyValues& declaration);

/**
 * The same as a topic for MQTT: in each level, every character but letters, digits, '-', '_' and '.' becomes '_', and
 * an empty level is one '_'.
 */
std::string mqttTopic(const KeyValues& declaration);

}  // namespace desktop
