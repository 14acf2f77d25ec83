// Puts the calling thread's run loop into its GLib main context: the handlers are called while that runs.
//
// One line, on the thread that installs the handlers, before or after it does:
//
//     GSource *loop = MoxelGLibAttach();
//
// From then on g_main_loop_run(), gtk_main() or g_application_run() on that thread calls the handlers. The
// header needs GLib 2.36 and nothing else: GTK of every version runs the same contexts.
#ifndef MOXEL_MOXELGLIB_H
#define MOXEL_MOXELGLIB_H

#include "MoxelRunLoop.h"

#include <errno.h>
#include <glib-unix.h>
#include <glib.h>

MOXEL_BEGIN_DECLS

/// GLib calls this. A handler that runs a loop of its own (a dialog) gets no further events in it: GLib polls
/// no source that is being dispatched.
static inline gboolean MoxelGLibDispatch(gint descriptor, GIOCondition condition, gpointer context) {
    (void)descriptor;
    (void)condition;
    (void)context;
    const int result = MoxelRunLoopDispatch(0);
    if (result >= 0 || result == -EBUSY) // Busy: it runs inside a handler that something else called.
        return G_SOURCE_CONTINUE;
    g_warning("The run loop of this thread has failed: %s", g_strerror(-result));
    return G_SOURCE_REMOVE;
}

/// Attaches the calling thread's run loop to the thread's default main context, which the same thread has to
/// run (g_main_context_push_thread_default() first for another one than the process's).
///
/// The source belongs to the caller: MoxelGLibDetach() takes it back. Its priority is G_PRIORITY_DEFAULT;
/// g_source_set_priority() changes it. Null where the thread has no descriptor (see MoxelRunLoopGetFD()). Two
/// attachments of one thread do no harm and no good.
static inline GSource *MoxelGLibAttach(void) {
    const int descriptor = MoxelRunLoopGetFD();
    if (descriptor < 0)
        return NULL;
    GSource *source = g_unix_fd_source_new(descriptor, G_IO_IN);
    GMainContext *context = g_main_context_ref_thread_default();
    // GLib keeps callbacks under one type and calls each with the arguments of its kind of source.
    g_source_set_callback(source, (GSourceFunc)(void (*)(void))MoxelGLibDispatch, NULL, NULL);
    g_source_set_name(source, "Moxel run loop");
    g_source_attach(source, context);
    g_main_context_unref(context);
    return source;
}

/// Ends an attachment; nothing happens for null. On the thread that made it, inside a handler too, and before
/// that thread ends, because its descriptor goes with it. Events that come later wait for the next attachment
/// or for MoxelRunLoopDispatch().
static inline void MoxelGLibDetach(GSource *source) {
    if (source == NULL)
        return;
    g_source_destroy(source);
    g_source_unref(source);
}

MOXEL_END_DECLS

#endif
