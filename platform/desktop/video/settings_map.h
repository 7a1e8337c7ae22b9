#pragma once

#include <map>
#include <string>

#include "gobject_holder.h"
#include "vdo-map.h"

namespace desktop {

/** What a VdoMap holds. */
using SettingsMap = std::map<std::string, guint32>;

/** Makes a VdoMap that holds the settings; the caller owns it. */
VdoMap* makeMapHandle(SettingsMap settings);

inline SettingsMap& settingsOf(VdoMap* map) {
    return platform_support::valueOf<SettingsMap>(map);
}

inline const SettingsMap& settingsOf(const VdoMap* map) {
    return platform_support::valueOf<SettingsMap>(const_cast<VdoMap*>(map));
}

}  // namespace desktop
