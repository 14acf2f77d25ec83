// The run loop of the calling thread, for applications that poll it from a loop of their own.
#include "ExportedCall.h"
#include "Platform/RunLoop.h"
#include <Moxel/MoxelRunLoop.h>

#include <cerrno>

using namespace moxel;

int MoxelRunLoopGetFD(void) {
    return exportedCall("MoxelRunLoopGetFD", -1, [] {
        const Result<std::shared_ptr<RunLoop>> loop = RunLoop::current();
        return loop.ok() ? (*loop)->descriptor() : -1;
    });
}

int MoxelRunLoopDispatch(int timeoutMilliseconds) {
    return exportedCall("MoxelRunLoopDispatch", -ENOMEM, [timeoutMilliseconds] {
        const Result<std::shared_ptr<RunLoop>> loop = RunLoop::current();
        return loop.ok() ? (*loop)->dispatch(timeoutMilliseconds) : -loop.error().code;
    });
}
