// The attachment to Qt's event loops, with real ones.
#include "Support/LoopTest.h"
#include <Moxel/MoxelQt.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <optional>

namespace moxel::test {
namespace {

class QtLoop : public LoopTest {
  protected:
    /// Runs an event loop of the calling thread until an event has come; a failed test when none does.
    static void runUntilAnEventComes() {
        QEventLoop loop;
        whenAnEventComes([&loop] { loop.quit(); });
        QTimer deadline;
        deadline.setSingleShot(true);
        QObject::connect(&deadline, &QTimer::timeout, &loop, [&loop] {
            ADD_FAILURE() << "no event came";
            loop.quit();
        });
        deadline.start(patienceMilliseconds);
        loop.exec();
    }
    /// Turns until one finds nothing to do; whether one found something.
    static bool turn() {
        QEventLoop loop;
        bool hasRun = false;
        for (int i = 0; i < 100 && loop.processEvents(); ++i)
            hasRun = true;
        return hasRun;
    }

  private:
    static inline int argumentCount = 1;
    static inline char program[] = "loops_tests";
    static inline char *arguments[] = {program, nullptr};
    QCoreApplication application{argumentCount, arguments};
};

TEST_F(QtLoop, DeliversAnEventOnTheApplicationsThread) {
    MoxelQtRunLoop attachment;
    EXPECT_TRUE(attachment.isAttached());
    beginSession();
    pressButton();
    runUntilAnEventComes();
    expectEventsOnThisThread(1);
}

TEST_F(QtLoop, OfAnotherThreadDeliversThere) {
    const std::unique_ptr<QThread> thread(QThread::create([this] {
        const MoxelQtRunLoop attachment;
        beginSession();
        pressButton();
        runUntilAnEventComes();
        expectEventsOnThisThread(1);
        endSession();
    }));
    thread->start();
    EXPECT_TRUE(thread->wait());
}

TEST_F(QtLoop, DeliversNothingOnceDetached) {
    beginSession();
    std::optional<MoxelQtRunLoop> attachment(std::in_place);
    attachment.reset();
    pressButton();
    ASSERT_TRUE(awaitEvent());
    (void)turn();
    expectEventsOnThisThread(0);
    attachment.emplace();
    runUntilAnEventComes();
    expectEventsOnThisThread(1);
}

TEST_F(QtLoop, LetsGoWithItsParent) {
    beginSession();
    {
        QObject parent;
        new MoxelQtRunLoop(&parent);
    }
    pressButton();
    ASSERT_TRUE(awaitEvent());
    (void)turn();
    expectEventsOnThisThread(0);
}

TEST_F(QtLoop, RestsInsideAHandlerThatRunsALoopOfItsOwn) {
    beginSession();
    const MoxelQtRunLoop attachment;
    (void)turn();
    bool ranNested = true;
    whenAnEventComes([&] {
        EXPECT_TRUE(attachment.isAttached());
        pressButton();
        ASSERT_TRUE(awaitEvent());
        whenAnEventComes([] {});
        ranNested = turn();
    });
    pressButton();
    ASSERT_TRUE(awaitEvent());
    EXPECT_TRUE(turn());
    EXPECT_FALSE(ranNested) << "it would spin";
    expectEventsOnThisThread(2);
}

TEST_F(QtLoop, MayBeDetachedInsideAHandler) {
    beginSession();
    auto attachment = std::make_unique<MoxelQtRunLoop>();
    whenAnEventComes([&] { attachment.reset(); });
    pressButton();
    ASSERT_TRUE(awaitEvent());
    EXPECT_TRUE(turn());
    expectEventsOnThisThread(1);
    pressButton();
    ASSERT_TRUE(awaitEvent());
    (void)turn();
    expectEventsOnThisThread(1);
}

} // namespace
} // namespace moxel::test
