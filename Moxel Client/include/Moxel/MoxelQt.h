// Puts the calling thread's run loop into its Qt event loop: the handlers are called while that runs.
//
// One line, on the thread that installs the handlers, before or after it does:
//
//     MoxelQtRunLoop runLoop;
//
// From then on QCoreApplication::exec() or QEventLoop::exec() on that thread calls the handlers. The header
// needs QtCore of Qt 5 or 6, no moc and no library of ours but the client library.
#ifndef MOXEL_MOXELQT_H
#define MOXEL_MOXELQT_H

#include "MoxelRunLoop.h"

#include <QtCore/QEvent>
#include <QtCore/QPointer>
#include <QtCore/QSocketNotifier>
#include <QtCore/QtGlobal>

#include <cerrno>

/// An attachment, for as long as it exists: on the stack, as a member, or made with new and given a parent.
///
/// It lives on the thread that makes it, which must have a QCoreApplication or be a QThread, and is destroyed
/// there, before that thread ends, inside a handler too; it must not be moved to another thread. Events that
/// come later wait for the next attachment or for MoxelRunLoopDispatch().
class MoxelQtRunLoop final : private QSocketNotifier {
  public:
    /// Attaches the calling thread's run loop.
    explicit MoxelQtRunLoop(QObject *parent = nullptr)
        : QSocketNotifier(MoxelRunLoopGetFD(), QSocketNotifier::Read, parent) {}

    /// False where the thread has no descriptor (see MoxelRunLoopGetFD()), or once its run loop has failed.
    [[nodiscard]] bool isAttached() const { return socket() >= 0 && !hasFailed_; }

  protected:
    /// A handler that runs an event loop of its own (a dialog) gets no further events in it, instead of an
    /// event loop that finds the descriptor readable all the time.
    bool event(QEvent *event) override {
        if (event->type() != QEvent::SockAct)
            return QSocketNotifier::event(event);
        const QPointer<QObject> self(this);
        setEnabled(false);
        const int result = MoxelRunLoopDispatch(0);
        if (!self) // A handler has destroyed it.
            return true;
        hasFailed_ = result < 0 && result != -EBUSY; // Busy: it runs inside a handler already.
        if (hasFailed_)
            qWarning("The run loop of this thread has failed: error %d", -result);
        else
            setEnabled(true);
        return true;
    }

  private:
    bool hasFailed_ = false;
};

#endif
