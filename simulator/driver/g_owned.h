// Owning pointer to a GLib object.
#ifndef MARVANE_SIMULATOR_DRIVER_G_OWNED_H
#define MARVANE_SIMULATOR_DRIVER_G_OWNED_H

#include <glib-object.h>

#include <memory>

namespace simulator {

struct GUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

/// Gives its reference back in the end.
template <class Object>
using GOwned = std::unique_ptr<Object, GUnref>;

/// A reference beside the caller's.
template <class Object>
GOwned<Object> Share(Object* object) {
    return GOwned<Object>(static_cast<Object*>(g_object_ref(object)));
}

}  // namespace simulator

#endif
