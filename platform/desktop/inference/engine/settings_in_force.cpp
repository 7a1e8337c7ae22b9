#include "desktop/inference/engine/settings_in_force.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "desktop/config/desktop_config.h"
#include "desktop/parameters/declarations.h"

namespace desktop {

SettingsInForce::SettingsInForce() {
    const DesktopConfig& config = desktopConfig();
    if (config.manifest.empty()) {
        return;
    }
    m_path = config.stateFolder + "/parameters.db";
    m_sensitivity = readSensitivityName(config.manifest).value_or("");
    for (const auto& [name, parameter] : readClassParameters(config.manifest)) {
        if (const std::optional<ObjectClass> objectClass = objectClassFromName(name)) {
            m_classes[*objectClass] = parameter;
        }
    }
}

float SettingsInForce::sensitivity() {
    const std::string& text = valueOf(m_sensitivity);
    float value = kUsualSensitivity;
    const bool isNumber = std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
    return isNumber ? value : kUsualSensitivity;
}

std::vector<ObjectClass> SettingsInForce::counted() {
    constexpr std::array<ObjectClass, kObjectClassCount> kLikeliestFirst = {
        ObjectClass::Person,     ObjectClass::Bicycle, ObjectClass::Car,  ObjectClass::Bus,     ObjectClass::Truck,
        ObjectClass::Motorcycle, ObjectClass::Train,   ObjectClass::Boat, ObjectClass::Airplane};
    std::vector<ObjectClass> classes;
    std::copy_if(kLikeliestFirst.begin(), kLikeliestFirst.end(), std::back_inserter(classes), [&](ObjectClass one) {
        const auto named = m_classes.find(one);
        return named != m_classes.end() && valueOf(named->second) == "true";
    });
    return classes;
}

/** Empty when there is no such parameter. */
const std::string& SettingsInForce::valueOf(const std::string& name) {
    std::string& known = m_values[name];
    if (!name.empty()) {
        known = read(name).value_or(known);
    }
    return known;
}

/** A parameter's value in the store, nothing when it cannot be read at once. */
std::optional<std::string> SettingsInForce::read(const std::string& name) {
    if (!m_database) {
        sqlite3* handle = nullptr;
        const int result = sqlite3_open_v2(m_path.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
        m_database.reset(handle);
        if (result != SQLITE_OK) {
            m_database.reset();
            return std::nullopt;
        }
    }
    sqlite3_stmt* handle = nullptr;
    sqlite3_prepare_v2(m_database.get(), "SELECT value FROM parameter WHERE name = ?1", -1, &handle, nullptr);
    const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> select(handle, sqlite3_finalize);
    sqlite3_bind_text(handle, 1, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(handle) != SQLITE_ROW) {
        return std::nullopt;
    }
    return std::string(reinterpret_cast<const char*>(sqlite3_column_text(handle, 0)));
}

std::vector<ObjectClass> classesToExpect(const std::vector<ObjectClass>& onCard,
                                         const std::vector<ObjectClass>& counted) {
    std::vector<ObjectClass> both;
    for (const ObjectClass objectClass : counted) {
        if (onCard.empty() || std::find(onCard.begin(), onCard.end(), objectClass) != onCard.end()) {
            both.push_back(objectClass);
        }
    }
    if (!both.empty()) {
        return both;
    }
    return onCard.empty() ? std::vector{ObjectClass::Person, ObjectClass::Bicycle, ObjectClass::Car, ObjectClass::Bus}
                          : onCard;
}

}  // namespace desktop
