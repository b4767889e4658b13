#include "CorvaneApp/config/ConfigFile.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <gtest/gtest.h>

#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

class ConfigFileTest : public ::testing::Test {
  protected:
    size_t entryCount() const {
        auto entries = std::filesystem::directory_iterator(dir_.path());
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }
    // Runs writeAtomic in a child whose files may not grow past 16 bytes. With SIGXFSZ at its
    // default the child dies mid-write, as in a crash between write and rename; with it ignored
    // the write fails with EFBIG, as on a full disk. Returns the child's wait status.
    static int writeInLimitedChild(const std::filesystem::path& path, bool crash) {
        pid_t child = ::fork();
        if (child == 0) {
            if (!crash) std::signal(SIGXFSZ, SIG_IGN);
            rlimit limit{16, 16};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            try {
                configfile::writeAtomic(std::string(64 * 1024, 'x'), path);
                ::_exit(0);
            } catch (const std::system_error& error) {
                ::_exit(error.code().value() == EFBIG ? 3 : 4);
            } catch (...) {
                ::_exit(5);
            }
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return status;
    }

    const std::string oldText = "# owner's file\nworker_id: 'w1'\n";
    testing::ScratchFolder dir_;
};

TEST_F(ConfigFileTest, CrashOrFailureBeforeTheRenameLeavesTheOldFileWhole) {
    auto path = dir_.write("config.yaml", oldText);
    int status = writeInLimitedChild(path, /*crash=*/false);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3)
        << "expected an EFBIG error, status " << status;
    EXPECT_EQ(configfile::read(path), oldText);
    EXPECT_EQ(entryCount(), 1u) << "a failed write removes its temp file";

    status = writeInLimitedChild(path, /*crash=*/true);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << "child status " << status;
    EXPECT_EQ(configfile::read(path), oldText);
    EXPECT_EQ(entryCount(), 2u) << "the crashed write's temp file stays behind";
    configfile::writeAtomic("worker_id: 'w2'\n", path);  // and doesn't get in the next write's way
    EXPECT_EQ(configfile::read(path), "worker_id: 'w2'\n");
}

TEST_F(ConfigFileTest, KeepsModeAndSymlink) {
    auto path = dir_ / "nested/dir/config.yaml";
    configfile::writeAtomic(oldText, path);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ::chmod(path.c_str(), 0660);
    auto link = dir_ / "link.yaml";
    std::filesystem::create_symlink(path, link);
    configfile::writeAtomic("b: 2\n", link);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(configfile::read(path), "b: 2\n");
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0660u);
}

}  // namespace
}  // namespace corvane
