// A trace that is being written.
#pragma once

#include "Platform/Result.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

namespace moxel::tool {

/// On one thread. Lines are in the order of their times.
class TraceFile {
  public:
    /// Standard output for "-". A file that is there is written over only when told so.
    static Result<TraceFile> create(const std::string &path, bool overwrites);

    /// A line, or a comment when the text begins with "#".
    void add(std::chrono::duration<double> time, const std::string &text);
    /// Hands everything to the system; the error tells why that failed, now or before.
    [[nodiscard]] Result<void> flush();

  private:
    struct Close {
        void operator()(FILE *file) const {
            if (file != stdout)
                std::fclose(file);
        }
    };

    TraceFile(FILE *file, std::string name) : file_(file), name_(std::move(name)) {}

    std::unique_ptr<FILE, Close> file_;
    std::string name_;
    std::chrono::duration<double> latest_{0};
};

} // namespace moxel::tool
