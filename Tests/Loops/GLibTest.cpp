// The attachment to GLib's main contexts, with real main loops.
#include "Support/LoopTest.h"
#include <Moxel/MoxelGLib.h>

#include <thread>

namespace moxel::test {
namespace {

class GLibLoop : public LoopTest {
  protected:
    /// Runs the calling thread's default context until an event has come; a failed test when none does.
    static void runUntilAnEventComes() {
        GMainContext *context = g_main_context_ref_thread_default();
        GMainLoop *loop = g_main_loop_new(context, FALSE);
        whenAnEventComes([loop] { g_main_loop_quit(loop); });
        GSource *deadline = g_timeout_source_new(patienceMilliseconds);
        g_source_set_callback(deadline, timeIsUp, loop, nullptr);
        g_source_attach(deadline, context);
        g_main_loop_run(loop);
        g_source_destroy(deadline);
        g_source_unref(deadline);
        g_main_loop_unref(loop);
        g_main_context_unref(context);
    }
    /// One turn that waits for nothing; whether anything ran.
    static bool turn() { return g_main_context_iteration(nullptr, FALSE) != FALSE; }

  private:
    static gboolean timeIsUp(gpointer loop) {
        ADD_FAILURE() << "no event came";
        g_main_loop_quit(static_cast<GMainLoop *>(loop));
        return G_SOURCE_CONTINUE;
    }
};

TEST_F(GLibLoop, DeliversAnEventOnTheApplicationsThread) {
    GSource *attachment = MoxelGLibAttach();
    ASSERT_NE(attachment, nullptr);
    beginSession();
    pressButton();
    runUntilAnEventComes();
    expectEventsOnThisThread(1);
    MoxelGLibDetach(attachment);
}

TEST_F(GLibLoop, OfAnotherThreadDeliversThere) {
    std::thread([this] {
        GMainContext *context = g_main_context_new();
        g_main_context_push_thread_default(context);
        beginSession();
        GSource *attachment = MoxelGLibAttach();
        pressButton();
        runUntilAnEventComes();
        expectEventsOnThisThread(1);
        MoxelGLibDetach(attachment);
        endSession();
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }).join();
}

TEST_F(GLibLoop, DeliversNothingOnceDetached) {
    beginSession();
    GSource *attachment = MoxelGLibAttach();
    MoxelGLibDetach(attachment);
    pressButton();
    ASSERT_TRUE(awaitEvent());
    EXPECT_FALSE(turn());
    expectEventsOnThisThread(0);
    attachment = MoxelGLibAttach();
    runUntilAnEventComes();
    expectEventsOnThisThread(1);
    MoxelGLibDetach(attachment);
}

TEST_F(GLibLoop, RestsInsideAHandlerThatRunsALoopOfItsOwn) {
    beginSession();
    GSource *attachment = MoxelGLibAttach();
    bool ranNested = true;
    whenAnEventComes([&] {
        pressButton();
        ASSERT_TRUE(awaitEvent());
        whenAnEventComes([] {});
        ranNested = turn();
    });
    pressButton();
    ASSERT_TRUE(awaitEvent());
    EXPECT_TRUE(turn());
    EXPECT_FALSE(ranNested) << "it would spin";
    if (HandlerRecorder::instance().count() < 2) // The handler took as long as a turn may take.
        runUntilAnEventComes();
    expectEventsOnThisThread(2);
    MoxelGLibDetach(attachment);
}

TEST_F(GLibLoop, MayBeDetachedInsideAHandler) {
    beginSession();
    GSource *attachment = MoxelGLibAttach();
    whenAnEventComes([&] { MoxelGLibDetach(std::exchange(attachment, nullptr)); });
    pressButton();
    ASSERT_TRUE(awaitEvent());
    EXPECT_TRUE(turn());
    expectEventsOnThisThread(1);
    pressButton();
    ASSERT_TRUE(awaitEvent());
    EXPECT_FALSE(turn());
    MoxelGLibDetach(attachment);
}

} // namespace
} // namespace moxel::test
