#include "config/parameter_controller.h"

#include <cerrno>
#include <cstdlib>
#include <glib.h>
#include <limits>

#include "base/platform_error.h"
#include "log/Logger.h"

bool g_SensorIs16x9 = true;

namespace {

void status_callback_log(const gchar* name, const gchar* value, gpointer) {
    applicationLog().info(std::string("status_callback_log: ") + name + " has changed to " + value);
}

/** A parameter's text as the store hands it out; null when there is none. */
using StoreText = std::unique_ptr<gchar, decltype(&g_free)>;

StoreText fetch(AXParameter* store, const char* name, GError** error) {
    gchar* value = nullptr;
    if (store == nullptr || !ax_parameter_get(store, name, &value, error)) {
        return {nullptr, g_free};
    }
    return {value, g_free};
}

std::string quotedNoNumber(const std::string& operation, const std::string& name, const std::string& text) {
    return operation + ": " + name + " is no number: \"" + text + "\"; using 0";
}

}  // namespace

parameter_controller::parameter_controller(const ConfigParams& config) : m_config(config) {}

void parameter_controller::init_controller(const std::string& appName) {
    PlatformError error;
    m_Parameter.reset(ax_parameter_new(appName.c_str(), error.slot()));
    if (!m_Parameter) {
        applicationLog().error("init_controller: Error Initializing Parameter of " + appName);
    }
    m_rotation = find_rotation_parameter(appName);
    for (const ParameterDeclaration& parameter : parameterTable()) {
        add_parameter(parameter.name);
    }
}

void parameter_controller::add_parameter(const std::string& name) {
    PlatformError error;
    if (!m_Parameter || !ax_parameter_add(m_Parameter.get(), name.c_str(), "0", nullptr, error.slot())) {
        if (error.code() != AX_PARAMETER_PARAM_ADDED_ERROR) {
            applicationLog().error("add_parameter: Failed to add parameter " + name + ". Error: " + error.message());
            m_Parameter.reset();
            return;
        }
    }
    // Runs before the configuration is first loaded, so change logging follows the record as it stands now.
    if (m_config.b_VerboseLog) {
        PlatformError callbackError;
        if (!ax_parameter_register_callback(m_Parameter.get(), name.c_str(), status_callback_log, nullptr,
                                            callbackError.slot())) {
            applicationLog().error("add_parameter: Failed to register callback for parameter " + name +
                                   ". Error: " + callbackError.message());
        }
    }
}

bool parameter_controller::read(const std::string& operation, const std::string& what, const std::string& name,
                                std::string& text) {
    PlatformError error;
    const StoreText value = fetch(m_Parameter.get(), name.c_str(), error.slot());
    if (!value) {
        applicationLog().error(operation + ": Failed to get " + what + name);
        m_Parameter.reset();
        return false;
    }
    text = value.get();
    if (m_config.b_VerboseLog) {
        applicationLog().info(operation + ": Retrieving " + name + ": " + text);
    }
    return true;
}

std::string parameter_controller::get_string_parameter(const std::string& name) {
    std::string text;
    read("get_string_parameter", "string parameter ", name, text);
    return text;
}

int32_t parameter_controller::get_gint_parameter(const std::string& name) {
    std::string text;
    if (!read("get_gint_parameter", "", name, text)) {
        return 0;
    }
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (end == text.c_str() || errno == ERANGE || number < std::numeric_limits<int32_t>::min() ||
        number > std::numeric_limits<uint32_t>::max()) {
        applicationLog().error(quotedNoNumber("get_gint_parameter", name, text));
        return 0;
    }
    return static_cast<int32_t>(static_cast<uint32_t>(number));
}

float parameter_controller::get_gfloat_parameter(const std::string& name) {
    std::string text;
    if (!read("get_gfloat_parameter", "", name, text)) {
        return 0.0F;
    }
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (end == text.c_str()) {
        applicationLog().error(quotedNoNumber("get_gfloat_parameter", name, text));
        return 0.0F;
    }
    return static_cast<float>(number);
}

bool parameter_controller::get_boolean_parameter(const std::string& name) {
    std::string text;
    return read("get_boolean_parameter", "", name, text) && text == "true";
}

void parameter_controller::write(const std::string& operation, const std::string& name, const std::string& text) {
    PlatformError error;
    if (!m_Parameter || !ax_parameter_set(m_Parameter.get(), name.c_str(), text.c_str(), TRUE, error.slot())) {
        applicationLog().error(operation + ": Failed to save " + name);
        m_Parameter.reset();
        return;
    }
    if (m_config.b_VerboseLog) {
        applicationLog().info(operation + ": " + name + " saved with value " + text);
    }
}

void parameter_controller::set_guint_parameter(const std::string& name, uint32_t value) {
    write("set_guint_parameter", name, std::to_string(value));
}

void parameter_controller::set_gfloat_parameter(const std::string& name, float value) {
    write("set_gfloat_parameter", name, std::to_string(value));
}

void parameter_controller::set_boolean_parameter(const std::string& name, bool value) {
    write("set_boolean_parameter", name, value ? "true" : "false");
}

void parameter_controller::set_string_parameter(const std::string& name, const std::string& value) {
    write("set_string_parameter", name, value);
}

void parameter_controller::list_params() {
    GList* names = m_Parameter ? ax_parameter_list(m_Parameter.get(), nullptr) : nullptr;
    for (const GList* entry = names; entry != nullptr; entry = entry->next) {
        applicationLog().info(std::string("list_params: Parameter in list: ") + static_cast<const char*>(entry->data));
    }
    g_list_free_full(names, g_free);
}

int32_t parameter_controller::find_rotation_parameter(const std::string&) {
    PlatformError error;
    const StoreText text = fetch(m_Parameter.get(), "root.Image.I0.Appearance.Rotation", error.slot());
    if (!text) {
        applicationLog().error("find_rotation_parameter: ERROR ax_parameter_get " + error.message());
        applicationLog().info("find_rotation_parameter: The value of rotation is N/A");
        applicationLog().error("find_rotation_parameter: Unknown rotation value");
        return 0;
    }
    applicationLog().info(std::string("find_rotation_parameter: The value of rotation is ") + text.get());
    const auto rotation = static_cast<int32_t>(std::strtoll(text.get(), nullptr, 10));
    if (m_config.b_VerboseLog) {
        applicationLog().info("find_rotation_parameter: About to return rotation number: " + std::to_string(rotation));
    }
    return rotation;
}

std::string parameter_controller::get_sensor_aspect_ratio() {
    PlatformError error;
    const StoreText text = fetch(m_Parameter.get(), "root.ImageSource.I0.Sensor.AspectRatio", error.slot());
    if (!text) {
        applicationLog().error("get_sensor_aspect_ratio: ERROR ax_parameter_get " + error.message() +
                               ". Assuming 16:9.");
        return "16:9";
    }
    return text.get();
}
