#include "settings_in_force.h"

#include <charconv>
#include <optional>

#include "declarations.h"
#include "desktop_config.h"
#include "parameter_store.h"

namespace desktop {

SettingsInForce::SettingsInForce() {
    const DesktopConfig& config = desktopConfig();
    if (config.manifest.empty()) {
        return;
    }
    m_sensitivity = readSensitivityName(config.manifest).value_or("");
    if (!m_sensitivity.empty()) {
        m_store =
            std::make_unique<ParameterStore>(config.stateFolder + "/parameters.db", std::vector<ParameterDefault>{});
    }
}

SettingsInForce::~SettingsInForce() = default;

float SettingsInForce::sensitivity() {
    const std::optional<std::string> text = m_store ? m_store->get(m_sensitivity) : std::nullopt;
    float value = kUsualSensitivity;
    if (text && std::from_chars(text->data(), text->data() + text->size(), value).ec != std::errc()) {
        return kUsualSensitivity;
    }
    return value;
}

}  // namespace desktop
