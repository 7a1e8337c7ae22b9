#include "classes_in_force.h"

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>

#include <axsdk/axparameter.h>

#include "declarations.h"
#include "desktop_config.h"

namespace desktop {
namespace {

struct FreeStore {
    void operator()(AXParameter* store) const { ax_parameter_free(store); }
};

bool isOn(AXParameter* store, const std::string& name) {
    gchar* value = nullptr;
    if (ax_parameter_get(store, name.c_str(), &value, nullptr) == FALSE) {
        return false;
    }
    const std::unique_ptr<gchar, decltype(&g_free)> owner(value, g_free);
    return std::string(value) == "true";
}

}  // namespace

std::vector<ObjectClass> classesInForce() {
    const std::string& manifest = desktopConfig().manifest;
    if (manifest.empty()) {
        return {};
    }
    const std::map<std::string, std::string> names = readClassParameters(manifest);
    const std::unique_ptr<AXParameter, FreeStore> store(ax_parameter_new("inference", nullptr));
    if (!store) {
        return {};
    }
    constexpr std::array<ObjectClass, kObjectClassCount> kLikeliestFirst = {
        ObjectClass::Person,     ObjectClass::Bicycle, ObjectClass::Car,  ObjectClass::Bus,     ObjectClass::Truck,
        ObjectClass::Motorcycle, ObjectClass::Train,   ObjectClass::Boat, ObjectClass::Airplane};
    std::vector<ObjectClass> classes;
    for (const ObjectClass objectClass : kLikeliestFirst) {
        const auto named = std::find_if(names.begin(), names.end(), [&](const auto& name) {
            return objectClassFromName(name.first) == objectClass;
        });
        if (named != names.end() && isOn(store.get(), named->second)) {
            classes.push_back(objectClass);
        }
    }
    return classes;
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
