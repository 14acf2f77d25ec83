#include "Command.h"

namespace moxel::tool {

void Command::addTo(CLI::App &program) {
    subcommand_ = program.add_subcommand(name_, summary_);
    describe(*subcommand_);
}

bool Command::isChosen() const { return subcommand_->parsed(); }

} // namespace moxel::tool
