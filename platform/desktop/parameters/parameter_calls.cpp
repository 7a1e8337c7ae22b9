#include <exception>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <axsdk/axparameter.h>

#include "base/mutex.h"
#include "desktop/config/desktop_config.h"
#include "desktop/parameters/lost_settings.h"
#include "desktop/parameters/parameter_store.h"
#include "desktop/parameters/parameter_watch.h"

/*
 * The parameter store's C interface over one ParameterStore. Full names from "root." down are the platform's own
 * parameters; short names are the application's.
 */

namespace {

struct Subscription {
    AXParameterCallback function;
    gpointer userData;
};

/** A change on its way to a callback on the main context. */
struct Change {
    Subscription subscription;
    std::string name;
    std::string value;
};

gboolean refuse(GError** error, AXParameterErrorCode code, const std::string& message) {
    g_set_error_literal(error, AX_PARAMETER_ERROR, code, message.c_str());
    return FALSE;
}

std::vector<desktop::ParameterDefault> allDefaults() {
    std::vector<desktop::ParameterDefault> defaults;
    if (const std::string& manifest = desktop::desktopConfig().manifest; !manifest.empty()) {
        defaults = desktop::readManifestDefaults(manifest);
    }
    defaults.push_back({"root.Image.I0.Appearance.Rotation", "0"});
    defaults.push_back({"root.Image.I0.Appearance.Mirrored", "0"});
    defaults.push_back({"root.ImageSource.I0.Sensor.AspectRatio", "16:9"});
    return defaults;
}

struct Watch {
    Mutex mutex; /**< guards what follows, and is held while the watcher is told */
    desktop::ParameterWatcher watcher GUARDED_BY(mutex);
    bool lost GUARDED_BY(mutex) = false; /**< also where no file can remember it */
};

std::string storePath() {
    return desktop::desktopConfig().stateFolder + "/parameters.db";
}

Watch& theWatch() {
    static Watch instance;
    return instance;
}

void tellWatcher(const std::string& name, const std::optional<std::string>& value) {
    Watch& watch = theWatch();
    const MutexLock lock(watch.mutex);
    const bool known = watch.watcher && watch.watcher(name, value);
    if (!value) {
        watch.lost = true;
        try {
            desktop::rememberLoss(storePath());
        } catch (const std::exception&) {
            // Without a configuration there is no folder to remember it in.
        }
    } else if (known && watch.lost) {
        watch.lost = false;
        desktop::forgetLoss(storePath());
    }
}

gboolean refuseAccess(GError** error, AXParameterErrorCode code, const std::string& name, const std::string& message) {
    tellWatcher(name, std::nullopt);
    return refuse(error, code, message);
}

}  // namespace

void desktop::watchParameters(ParameterWatcher watcher) {
    Watch& watch = theWatch();
    const MutexLock lock(watch.mutex);
    watch.watcher = std::move(watcher);
    if (watch.watcher && (watch.lost || desktop::isLossRemembered(storePath()))) {
        watch.lost = true;
        watch.watcher("parameters.db", std::nullopt);
    }
}

struct _AXParameter {
    desktop::ParameterStore store{storePath(), allDefaults()};
    Mutex mutex; /**< guards subscriptions */
    std::map<std::string, Subscription> subscriptions GUARDED_BY(mutex);
};

GQuark ax_parameter_error_quark() {
    return g_quark_from_static_string("ax-parameter-error-quark");
}

AXParameter* ax_parameter_new(const gchar*, GError** error) {
    try {
        return std::make_unique<_AXParameter>().release();
    } catch (const std::exception& exception) {
        refuseAccess(error, AX_PARAMETER_FILE_FORMAT_ERROR, "parameters.db", exception.what());
        return nullptr;
    }
}

void ax_parameter_free(AXParameter* self) {
    const std::unique_ptr<_AXParameter> owner(self);
}

gboolean ax_parameter_add(AXParameter* self, const gchar* name, const gchar* initialValue, const gchar*,
                          GError** error) {
    try {
        if (!self->store.add(name, initialValue)) {
            return refuse(error, AX_PARAMETER_PARAM_ADDED_ERROR, std::string(name) + " is there already");
        }
        return TRUE;
    } catch (const std::exception& exception) {
        return refuseAccess(error, AX_PARAMETER_FILE_WRITE_ERROR, name, exception.what());
    }
}

gboolean ax_parameter_get(AXParameter* self, const gchar* name, gchar** value, GError** error) {
    try {
        const std::optional<std::string> text = self->store.get(name);
        if (!text) {
            return refuseAccess(error, AX_PARAMETER_PARAM_GET_ERROR, name, std::string("no parameter ") + name);
        }
        *value = g_strdup(text->c_str());
        return TRUE;
    } catch (const std::exception& exception) {
        return refuseAccess(error, AX_PARAMETER_PARAM_GET_ERROR, name, exception.what());
    }
}

gboolean ax_parameter_set(AXParameter* self, const gchar* name, const gchar* value, gboolean, GError** error) {
    try {
        self->store.set(name, value);
    } catch (const std::exception& exception) {
        return refuseAccess(error, AX_PARAMETER_PARAM_SET_ERROR, name, exception.what());
    }
    tellWatcher(name, value);
    const MutexLock lock(self->mutex);
    const auto found = self->subscriptions.find(name);
    if (found != self->subscriptions.end()) {
        auto change = std::make_unique<Change>(Change{found->second, name, value});
        g_idle_add_full(
            G_PRIORITY_DEFAULT_IDLE,
            [](gpointer data) -> gboolean {
                const auto* const arrived = static_cast<Change*>(data);
                arrived->subscription.function(arrived->name.c_str(), arrived->value.c_str(),
                                               arrived->subscription.userData);
                return G_SOURCE_REMOVE;
            },
            change.release(), [](gpointer data) { const std::unique_ptr<Change> owner(static_cast<Change*>(data)); });
    }
    return TRUE;
}

gboolean ax_parameter_register_callback(AXParameter* self, const gchar* name, AXParameterCallback callback,
                                        gpointer userData, GError** error) {
    try {
        if (!self->store.get(name)) {
            return refuse(error, AX_PARAMETER_CALLBACK_ERROR, std::string("no parameter ") + name);
        }
    } catch (const std::exception& exception) {
        return refuse(error, AX_PARAMETER_CALLBACK_ERROR, exception.what());
    }
    const MutexLock lock(self->mutex);
    self->subscriptions[name] = {callback, userData};
    return TRUE;
}

GList* ax_parameter_list(AXParameter* self, GError** error) {
    try {
        GList* names = nullptr;
        for (const std::string& name : self->store.names()) {
            if (name.rfind("root.", 0) != 0) {
                names = g_list_prepend(names, g_strdup(name.c_str()));
            }
        }
        return g_list_reverse(names);
    } catch (const std::exception& exception) {
        refuse(error, AX_PARAMETER_PARAM_LIST_ERROR, exception.what());
        return nullptr;
    }
}
