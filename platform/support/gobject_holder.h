#pragma once

#include <glib-object.h>
#include <memory>

/**
 * GObject handles that carry a C++ value, for implementations of the platform's C interfaces.
 *
 * Each opaque C type of those interfaces gets its own GType by instantiating this template with a tag type; the value
 * is destroyed when the last reference goes.
 */
namespace platform_support {

template <typename Value>
struct HolderInstance {
    GObject parent;
    Value* value;
};

template <typename Value>
GType holderType(const char* typeName) {
    static const GType type = [typeName] {
        GTypeInfo info = {};
        info.class_size = sizeof(GObjectClass);
        info.class_init = [](gpointer klass, gpointer) {
            G_OBJECT_CLASS(klass)->finalize = [](GObject* object) {
                auto* holder = reinterpret_cast<HolderInstance<Value>*>(object);
                delete holder->value;
                holder->value = nullptr;
                auto* parentClass = G_OBJECT_CLASS(g_type_class_peek(G_TYPE_OBJECT));
                parentClass->finalize(object);
            };
        };
        info.instance_size = sizeof(HolderInstance<Value>);
        return g_type_register_static(G_TYPE_OBJECT, typeName, &info, static_cast<GTypeFlags>(0));
    }();
    return type;
}

/** Makes a handle of type typeName (unique per Value in the process) that owns the value. */
template <typename Handle, typename Value>
Handle* makeHandle(const char* typeName, std::unique_ptr<Value> value) {
    auto* holder = static_cast<HolderInstance<Value>*>(g_object_new(holderType<Value>(typeName), nullptr));
    holder->value = value.release();
    return reinterpret_cast<Handle*>(holder);
}

/** Returns the value that a handle made by makeHandle carries. */
template <typename Value, typename Handle>
Value& valueOf(Handle* handle) {
    return *reinterpret_cast<const HolderInstance<Value>*>(handle)->value;
}

}  // namespace platform_support
