// A watched folder tree in which anything happens.
#include "Platform/WatchedTree.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <thread>

namespace moxel::foldertree {
namespace {

using test::TemporaryFolder;
namespace fs = std::filesystem;

/// What a receiver of the events believes to be there.
class Believer {
  public:
    void hear(const Events &events) {
        for (const Event &event : events) {
            const std::string &path = event.first;
            if ((event.second & created) != 0) {
                believed_.insert(path);
            } else if ((event.second & (removed | renamed)) != 0) {
                std::erase_if(believed_, [&path](const std::string &each) {
                    return each == path || each.starts_with(path + '/');
                });
            }
        }
    }
    const std::set<std::string> &believed() const { return believed_; }

  private:
    std::set<std::string> believed_;
};

std::set<std::string> everythingBelow(const std::string &folder) {
    std::set<std::string> paths;
    for (const auto &entry : fs::recursive_directory_iterator(folder))
        paths.insert(entry.path().string());
    return paths;
}

/// Does something at random to something at random.
class Vandal {
  public:
    Vandal(std::string folder, unsigned seed) : folder_(std::move(folder)), random_(seed) {}

    unsigned random(unsigned bound) { return static_cast<unsigned>(random_() % bound); }

    void act() {
        std::error_code ignored;
        const std::string path = randomPath();
        switch (random(6)) {
        case 0:
        case 1:
            fs::create_directories(path, ignored);
            break;
        case 2:
        case 3: {
            std::ofstream stream(path);
            stream << "text";
            break;
        }
        case 4:
            fs::rename(path, randomPath(), ignored);
            break;
        default:
            fs::remove_all(path, ignored);
        }
    }

  private:
    std::string randomPath() {
        std::string path = folder_;
        for (unsigned depth = random(3) + 1; depth > 0; --depth)
            path += std::string("/") + static_cast<char>('a' + random(3));
        return path;
    }

    std::string folder_;
    std::mt19937 random_;
};

TEST(FolderTreeAtRandom, EventsTellWhatIsThere) {
    for (unsigned seed = 0; seed < 8; ++seed) {
        const TemporaryFolder folder;
        fs::create_directory(folder.path("root"));
        WatchedTree tree(folder.path("root"));
        Vandal vandal(folder.path("root"), seed);
        Believer believer;
        for (int step = 0; step < 200; ++step) {
            vandal.act();
            if (vandal.random(8) == 0)
                believer.hear(tree.events());
            if (vandal.random(60) == 0)
                believer.hear(tree.eventsAfterOverflow());
        }
        believer.hear(tree.events());
        ASSERT_EQ(believer.believed(), everythingBelow(folder.path("root"))) << "seed " << seed;
    }
}

TEST(FolderTreeAtRandom, EventsTellWhatIsThereWhenTheFolderItselfComesAndGoes) {
    for (unsigned seed = 0; seed < 8; ++seed) {
        const TemporaryFolder folder;
        fs::create_directories(folder.path("top/a/b"));
        WatchedTree tree(folder.path("top/a/b"));
        Vandal vandal(folder.path("top"), seed);
        Believer believer;
        for (int step = 0; step < 200; ++step) {
            vandal.act();
            if (vandal.random(8) == 0)
                believer.hear(tree.events());
            if (vandal.random(60) == 0)
                believer.hear(tree.eventsAfterOverflow());
        }
        fs::remove_all(folder.path("top/a"));
        folder.write("top/a/b/c/file");
        believer.hear(tree.events());
        std::set<std::string> there = everythingBelow(folder.path("top/a/b"));
        there.insert(folder.path("top/a/b"));
        ASSERT_EQ(believer.believed(), there) << "seed " << seed;
    }
}

TEST(FolderTreeAtRandom, EventsTellWhatIsThereWhileItChanges) {
    for (unsigned seed = 0; seed < 2; ++seed) {
        const TemporaryFolder folder;
        fs::create_directory(folder.path("root"));
        WatchedTree tree(folder.path("root"));
        std::atomic<bool> done = false;
        std::thread changing([&] {
            Vandal vandal(folder.path("root"), seed);
            for (int step = 0; step < 1000; ++step)
                vandal.act();
            done = true;
        });
        Believer believer;
        while (!done)
            believer.hear(tree.events());
        changing.join();
        believer.hear(tree.events());
        ASSERT_EQ(believer.believed(), everythingBelow(folder.path("root"))) << "seed " << seed;
    }
}

} // namespace
} // namespace moxel::foldertree
