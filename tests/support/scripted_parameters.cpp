#include <axsdk/axparameter.h>

#include "script.h"
#include "scripted_platform.h"

struct _AXParameter {};

namespace {

struct Callback {
    AXParameterCallback function;
    gpointer userData;
};

struct ParameterScript {
    std::map<std::string, std::string> values;
    std::vector<std::string> calls;
    std::map<std::string, Callback> callbacks;
    _AXParameter handle;
    bool released = false;
};

ParameterScript& script() {
    static ParameterScript instance;
    return instance;
}

using scripted::failsNow;
using scripted::refuse;

}  // namespace

namespace scripted {

void resetParameters() {
    script() = {};
    parameters() = {{"root.Image.I0.Appearance.Rotation", "0"}, {"root.ImageSource.I0.Sensor.AspectRatio", "16:9"}};
}

std::map<std::string, std::string>& parameters() {
    return script().values;
}

std::vector<std::string>& parameterCalls() {
    return script().calls;
}

bool storeReleased() {
    return script().released;
}

}  // namespace scripted

GQuark ax_parameter_error_quark() {
    return g_quark_from_static_string("ax-parameter-error-quark");
}

AXParameter* ax_parameter_new(const gchar*, GError** error) {
    return failsNow("ax_parameter_new", AX_PARAMETER_ERROR, error) ? nullptr : &script().handle;
}

void ax_parameter_free(AXParameter*) {
    failsNow("ax_parameter_free");
    script().released = true;
}

gboolean ax_parameter_add(AXParameter*, const gchar* name, const gchar* initialValue, const gchar*, GError** error) {
    script().calls.push_back(std::string("add ") + name);
    if (failsNow("ax_parameter_add", AX_PARAMETER_ERROR, error)) {
        return FALSE;
    }
    if (!script().values.emplace(name, initialValue).second) {
        refuse(AX_PARAMETER_ERROR, AX_PARAMETER_PARAM_ADDED_ERROR, "already there", error);
        return FALSE;
    }
    return TRUE;
}

gboolean ax_parameter_get(AXParameter*, const gchar* name, gchar** value, GError** error) {
    script().calls.push_back(std::string("get ") + name);
    if (failsNow("ax_parameter_get", AX_PARAMETER_ERROR, error)) {
        return FALSE;
    }
    const auto found = script().values.find(name);
    if (found == script().values.end()) {
        refuse(AX_PARAMETER_ERROR, AX_PARAMETER_PARAM_GET_ERROR, std::string("no parameter ") + name, error);
        return FALSE;
    }
    *value = g_strdup(found->second.c_str());
    return TRUE;
}

gboolean ax_parameter_set(AXParameter*, const gchar* name, const gchar* value, gboolean, GError** error) {
    script().calls.push_back(std::string("set ") + name + "=" + value);
    if (failsNow("ax_parameter_set", AX_PARAMETER_ERROR, error)) {
        return FALSE;
    }
    script().values[name] = value;
    if (const auto callback = script().callbacks.find(name); callback != script().callbacks.end()) {
        callback->second.function(name, value, callback->second.userData);
    }
    return TRUE;
}

gboolean ax_parameter_register_callback(AXParameter*, const gchar* name, AXParameterCallback callback,
                                        gpointer userData, GError** error) {
    script().calls.push_back(std::string("callback ") + name);
    if (failsNow("ax_parameter_register_callback", AX_PARAMETER_ERROR, error)) {
        return FALSE;
    }
    script().callbacks[name] = {callback, userData};
    return TRUE;
}

GList* ax_parameter_list(AXParameter*, GError** error) {
    if (failsNow("ax_parameter_list", AX_PARAMETER_ERROR, error)) {
        return nullptr;
    }
    GList* names = nullptr;
    for (const auto& [name, value] : script().values) {
        if (name.rfind("root.", 0) != 0) {
            names = g_list_append(names, g_strdup(name.c_str()));
        }
    }
    return names;
}
