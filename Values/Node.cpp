// Frees nodes without recursion.
#include "Node.h"

namespace moxel::detail {

namespace {

// What this thread has still to free. Deleting a container releases its members, which land here instead of
// being deleted inside their parent's destructor.
struct Doomed {
    Node *first = nullptr;
    bool isFreeing = false;
};
constinit thread_local Doomed doomed;

} // namespace

void Node::destroy(Node *node) noexcept {
    if (node->kind_ == Kind::string || node->kind_ == Kind::data) {
        delete node;
        return;
    }
    node->nextToDestroy_ = std::exchange(doomed.first, node);
    if (doomed.isFreeing)
        return;
    doomed.isFreeing = true;
    while (Node *next = doomed.first) {
        doomed.first = next->nextToDestroy_;
        delete next;
    }
    doomed.isFreeing = false;
}

} // namespace moxel::detail
