#include <cstdio>
#include <memory>

#include "desktop/video/settings_map.h"
#include "vdo-map.h"

VdoMap* vdo_map_new(void) {
    return desktop::makeMapHandle({});
}

void vdo_map_set_uint32(VdoMap* self, const gchar* name, guint32 value) {
    desktop::settingsOf(self)[name] = value;
}

guint32 vdo_map_get_uint32(const VdoMap* self, const gchar* name, guint32 def) {
    const auto& settings = desktop::settingsOf(self);
    const auto found = settings.find(name);
    return found == settings.end() ? def : found->second;
}

void vdo_map_dump(const VdoMap* self) {
    for (const auto& [name, value] : desktop::settingsOf(self)) {
        std::printf("%s: %u\n", name.c_str(), value);
    }
}

namespace desktop {

VdoMap* makeMapHandle(SettingsMap settings) {
    return platform_support::makeHandle<VdoMap>("SenvoVdoMap", std::make_unique<SettingsMap>(std::move(settings)));
}

}  // namespace desktop
