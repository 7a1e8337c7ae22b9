#pragma once

#include <map>
#include <memory>
#include <optional>
#include <sqlite3.h>
#include <string>
#include <vector>

#include "desktop/inference/detections/detections.h"

namespace desktop {

/**
 * The application's settings that the inference service goes by. The package manifest names their parameters. The store
 * is read, never written, and nobody waits for it: while it cannot be read, what was read last is in force. Used by one
 * thread at a time.
 */
class SettingsInForce {
public:
    /** Throws std::runtime_error when the manifest cannot be read. */
    SettingsInForce();

    /**
     * The score above which a box counts, 0..1. kUsualSensitivity without a manifest that names it, or while its value
     * is no number.
     */
    float sensitivity();
    static constexpr float kUsualSensitivity = 0.35F;

    /**
     * The classes that are counted, the likeliest to appear first. Empty without a manifest, when it names none, or
     * when none is on.
     */
    std::vector<ObjectClass> counted();

private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };

    const std::string& valueOf(const std::string& name);
    std::optional<std::string> read(const std::string& name);

    std::string m_path;                           /**< of the store; empty without a manifest */
    std::string m_sensitivity;                    /**< the parameter's name; empty: none */
    std::map<ObjectClass, std::string> m_classes; /**< the names of their parameters */
    std::map<std::string, std::string> m_values;  /**< as read last */
    std::unique_ptr<sqlite3, CloseDatabase> m_database;
};

/**
 * What an engine is to tell apart, which must not be empty: the counted classes that the card lists; all counted ones
 * when it lists none; what the card lists when none of it is counted; people, bicycles, cars and buses when neither
 * says anything.
 */
std::vector<ObjectClass> classesToExpect(const std::vector<ObjectClass>& onCard,
                                         const std::vector<ObjectClass>& counted);

}  // namespace desktop
