#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/**
 * Reads JSON that people write: what is not as expected throws std::runtime_error in the words
 * "KEY": expected ..., got .... The key is the full one, "input.width", for the message alone. Any thread.
 */
namespace json {

using Value = nlohmann::json;

[[noreturn]] void refuse(const std::string& key, const std::string& expected, const Value& got);

/** A key of an object as messages name it. */
std::string fullKey(const std::string& object, const std::string& key);

double numberBetween(double lowest, double highest, const std::string& key, const Value& value);
int integerBetween(int lowest, int highest, const std::string& key, const Value& value);
bool flag(const std::string& key, const Value& value);

/** A text, perhaps an empty one. */
std::string text(const std::string& key, const Value& value);

/** What an object has under a key. */
const Value& member(const Value& object, const std::string& key);

template <typename Meaning>
using NameTable = std::vector<std::pair<std::string, Meaning>>;

/** The names of a table, for messages. */
template <typename Meaning>
std::string namesOf(const NameTable<Meaning>& table) {
    std::string names;
    for (const auto& [name, meaning] : table) {
        names.append(names.empty() ? "" : ", ").append(name);
    }
    return names;
}

template <typename Meaning>
Meaning oneOf(const NameTable<Meaning>& table, const std::string& key, const Value& value) {
    for (const auto& [name, meaning] : table) {
        if (value == name) {
            return meaning;
        }
    }
    refuse(key, "one of " + namesOf(table), value);
}

/** Readers of one object's keys; they are given the full key. */
using Readers = NameTable<std::function<void(const std::string& key, const Value& value)>>;

/** Reads an object, "" for the whole document; keys without a reader are refused, with those that are known. */
void readObject(const std::string& object, const Value& value, const Readers& readers);

}  // namespace json
