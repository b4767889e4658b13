// The config file's watcher against a real folder: saves in place and by rename are seen, other
// files are not, and a missing or removed folder ends the watch. It waits on the kernel's events,
// never on a clock.

#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>
#include <mutex>

#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/FileWatcher.h"
#include "CorvaneApp/platform/VolumeInfo.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

class Calls {
  public:
    void add() {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    // Waits for the kernel's event to arrive; the bound only ends a broken test.
    bool reach(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return count_ >= count; });
    }
    int count() {
        std::lock_guard lock(mutex_);
        return count_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

TEST(FileWatcherTest, SeesSavesInPlaceAndByRenameButNotOtherFiles) {
    testing::ScratchFolder folder;
    const auto config = folder.write("home/config.yaml", "a: 1\n");
    Calls calls;
    FileWatcher watcher(config, [&] { calls.add(); });
    ASSERT_TRUE(watcher.isWatching());

    folder.write("home/notes.txt", "other\n");
    writeFileAtomically(config, "a: 2\n");  // by rename, as editors and the store save
    ASSERT_TRUE(calls.reach(1));
    EXPECT_EQ(calls.count(), 1) << "the other file was no news";

    std::ofstream(config, std::ios::trunc) << "a: 3\n";  // in place
    ASSERT_TRUE(calls.reach(2));
    fs::remove(config);
    ASSERT_TRUE(calls.reach(3));

    // The folder itself goes: one last word, and the watch ends.
    fs::remove_all(folder / "home");
    ASSERT_TRUE(calls.reach(4));
    for (int i = 0; i < 2000 && watcher.isWatching(); ++i) std::this_thread::yield();
    EXPECT_FALSE(watcher.isWatching());
}

TEST(FileWatcherTest, AMissingFolderIsNotWatched) {
    testing::ScratchFolder folder;
    bool called = false;
    FileWatcher watcher(folder / "no-such/config.yaml", [&] { called = true; });
    EXPECT_FALSE(watcher.isWatching());
    EXPECT_FALSE(called);
}

TEST(VolumeInfoTest, MeasuresAnExistingPathOnly) {
    testing::ScratchFolder folder;
    const auto volume = VolumeInfo::of(folder.path());
    ASSERT_TRUE(volume);
    EXPECT_GT(volume->totalGB, 0);
    EXPECT_LE(volume->freeGB, volume->totalGB);
    EXPECT_EQ(VolumeInfo::of(folder / "no-such-folder"), std::nullopt);
}

}  // namespace
}  // namespace corvane
