#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <axsdk/axparameter.h>

#include "config/config_params.h"

/** Whether the camera's image sensor is wider than 4:3; found at start-up, read from then on. */
extern bool g_SensorIs16x9;

/**
 * The application's one gateway to the platform's parameter store: typed reads and writes of single parameters, the
 * whole configuration record, and two parameters of the platform itself.
 *
 * Failures are log lines, never exceptions. A failed get, set or add (other than of a parameter that is already there)
 * releases the store for good: from then on every read gives 0, 0.0, false or an empty text and every write is lost,
 * each with its error line. No lock: callers do not overlap their writes.
 */
class parameter_controller {
public:
    /** config: the live record; its VerboseLog decides whether single reads and writes are logged. */
    explicit parameter_controller(const ConfigParams& config);

    /** Opens the store for appName, reads the rotation, registers every parameter. */
    void init_controller(const std::string& appName);

    /** Creates a parameter, with the value "0" when the store does not have it yet. */
    void add_parameter(const std::string& name);

    std::string get_string_parameter(const std::string& name);

    /**
     * Base-10 text to a signed number. Texts up to 4294967295 are what set_guint_parameter writes for negative numbers
     * and read back as those. Text that is no number, or one that fits neither, reads as 0 with an error line.
     */
    int32_t get_gint_parameter(const std::string& name);

    /** Text that is no number reads as 0 with an error line. */
    float get_gfloat_parameter(const std::string& name);

    /** True exactly for the text "true". */
    bool get_boolean_parameter(const std::string& name);

    void set_guint_parameter(const std::string& name, uint32_t value);
    void set_gfloat_parameter(const std::string& name, float value);
    void set_boolean_parameter(const std::string& name, bool value);
    void set_string_parameter(const std::string& name, const std::string& value);

    /** Logs every parameter name of the application's group. */
    void list_params();

    /** Reads the platform's image rotation in degrees; 0 when it cannot be read. The application's name is not used. */
    int32_t find_rotation_parameter(const std::string& appName);

    /** The rotation that init_controller found. */
    int32_t get_rotation() const { return m_rotation; }

    /** The image sensor's aspect ratio, such as "16:9"; "16:9" when it cannot be read. */
    std::string get_sensor_aspect_ratio();

    /** Reads the whole record. HStream and WStream are published only, and not read. */
    ConfigParams load_config_params();

    /** Writes the whole record. ModelWidth, ModelHeight and MainLoopTime are fixed by the package, and not written. */
    void save_config_params(ConfigParams config);

    /** The whole record as save_config_params stores it: the texts by their parameters' names. Holds logins. */
    static std::map<std::string, std::string> stored_texts(ConfigParams config);

    CameraInfo load_cameraInfo();
    void save_cameraInfo(const CameraInfo& info);

private:
    struct FreeParameter {
        void operator()(AXParameter* handle) const { ax_parameter_free(handle); }
    };

    /** Reads a text; false, with the error logged and the store released, when that fails. */
    bool read(const std::string& operation, const std::string& what, const std::string& name, std::string& text);
    void write(const std::string& operation, const std::string& name, const std::string& text);

    std::unique_ptr<AXParameter, FreeParameter> m_Parameter;
    int32_t m_rotation = 0;
    const ConfigParams& m_config;
};
