// Where traces and movement send what happens.
#pragma once

#include "Moxel Daemon/Motion/Trace.h"

namespace moxel::daemon {

/// Lives on the thread of its sources.
class EventSink {
  public:
    virtual void happen(const TraceEvent &event) = 0;

  protected:
    ~EventSink() = default;
};

} // namespace moxel::daemon
