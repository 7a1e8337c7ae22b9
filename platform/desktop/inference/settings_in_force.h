#pragma once

#include <memory>
#include <string>

namespace desktop {

class ParameterStore;

/**
 * The application's settings that the inference service goes by. The package manifest names their parameters under
 * "inference"; the store is read, never written.
 */
class SettingsInForce {
public:
    /** Throws std::runtime_error when the manifest or the store cannot be read. */
    SettingsInForce();
    ~SettingsInForce();
    SettingsInForce(const SettingsInForce&) = delete;
    SettingsInForce& operator=(const SettingsInForce&) = delete;

    /**
     * The score above which a box counts, 0..1. kUsualSensitivity without a manifest that names it, or while its value
     * is no number. Throws std::runtime_error when the store cannot be read.
     */
    float sensitivity();
    static constexpr float kUsualSensitivity = 0.35F;

private:
    std::string m_sensitivity; /**< the parameter's name; empty: none */
    std::unique_ptr<ParameterStore> m_store;
};

}  // namespace desktop
