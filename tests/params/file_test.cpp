#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "params/File.h"

namespace {

using android::File;

int open_descriptor_count() {
    DIR* dir = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
}

class FileTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "magcal_file_XXXXXX";
        ASSERT_NE(mkdtemp(&pattern[0]), nullptr);
        dir_ = pattern;
        path_ = dir_ + "/data";
    }
    void TearDown() override {
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }
    std::string dir_;
    std::string path_;
};

TEST_F(FileTest, ModesCreateTruncateAndReadBack) {
    const mode_t old_mask = umask(0);
    {
        File w(path_.c_str(), "w");
        EXPECT_EQ(w.initCheck(), 0);
        EXPECT_EQ(w.write("hello", 5), 5);
    }
    umask(old_mask);
    struct stat st;
    ASSERT_EQ(stat(path_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);

    char buf[16] = {};
    {
        File rw(path_.c_str(), "rw");  // opens without truncating
        ASSERT_EQ(rw.initCheck(), 0);
        EXPECT_EQ(rw.seekTo(0, SEEK_END), 5);
        EXPECT_EQ(rw.write("!", 1), 1);
        EXPECT_EQ(rw.seekTo(1, SEEK_SET), 1);
        EXPECT_EQ(rw.read(buf, sizeof buf), 5);
        EXPECT_EQ(std::string(buf, 5), "ello!");
        EXPECT_EQ(rw.seekTo(-1, SEEK_SET), -EINVAL);
    }
    {
        File other(path_.c_str(), "a");  // unknown modes only read
        ASSERT_EQ(other.initCheck(), 0);
        EXPECT_EQ(other.write("x", 1), -1);
        EXPECT_EQ(other.read(buf, sizeof buf), 6);
    }
    {
        File w(path_.c_str(), "w");
        ASSERT_EQ(w.initCheck(), 0);
    }
    ASSERT_EQ(stat(path_.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 0);  // "w" truncates
}

TEST_F(FileTest, FailuresAndCloseReportStatus) {
    File missing((dir_ + "/absent").c_str(), "r");
    EXPECT_EQ(missing.initCheck(), -ENOENT);
    char c;
    EXPECT_EQ(missing.read(&c, 1), -1);

    const int before = open_descriptor_count();
    {
        File f(path_.c_str(), "w");
        ASSERT_EQ(f.initCheck(), 0);
        EXPECT_EQ(f.setTo(path_.c_str(), "r"), 0);  // reopening closes the old descriptor
        EXPECT_EQ(f.setTo((dir_ + "/absent").c_str(), "r"), -ENOENT);
        EXPECT_EQ(f.initCheck(), -ENOENT);
        EXPECT_EQ(f.setTo(path_.c_str(), "rw"), 0);
        EXPECT_EQ(open_descriptor_count(), before + 1);
        f.close();
        EXPECT_EQ(f.initCheck(), -19);
        EXPECT_EQ(f.seekTo(0, SEEK_SET), -EBADF);
        EXPECT_EQ(f.read(&c, 1), -1);
    }
    EXPECT_EQ(open_descriptor_count(), before);
}

}  // namespace
