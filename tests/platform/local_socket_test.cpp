#include "platform/local_socket.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"

namespace {

mode_t ModeOf(const std::string& path) {
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

TEST(LocalSocket, WorksAtAPathOfAnyLengthAndIsPrivateFromItsFirstMoment) {
    const ScratchFolder scratch;
    const std::string folder = scratch.Path() / std::string(200, 'x') / std::string(200, 'y');
    fs::create_directories(folder);
    const std::string path = folder + "/socket";
    LocalListener listener;
    const mode_t outer = umask(0);
    ASSERT_FALSE(listener.Open(path));
    (void)umask(outer);
    EXPECT_EQ(ModeOf(path), mode_t{S_IFSOCK | 0600});

    ScopedFd client;
    ASSERT_FALSE(ConnectLocal(path, client));
    ScopedFd served;
    ASSERT_FALSE(listener.Accept(served));
    EXPECT_TRUE(IsPeerTrusted(served.Get()));
    std::size_t sent = 0;
    ASSERT_FALSE(SendSome(client.Get(), "hello", sent));
    std::string bytes;
    bool isOver = true;
    ASSERT_FALSE(ReceiveSome(served.Get(), 100, bytes, isOver));
    EXPECT_EQ(bytes, "hello");
    EXPECT_FALSE(isOver);

    listener.Close();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(ConnectLocal(path, client), std::errc::no_such_file_or_directory);
}

TEST(LocalSocket, TakesAPlaceOnlyWhereNobodyListensAndRemovesOnlyItsOwn) {
    const ScratchFolder scratch;
    const std::string path = scratch.Path() / "socket";
    {
        const ChildProcess killed([&]() -> bool {
            LocalListener listener;
            const bool isOpen = !listener.Open(path);
            std::_Exit(isOpen ? 0 : 1);  // leaves its file
        });
        ASSERT_TRUE(killed.Succeeds());
    }
    ASSERT_NE(ModeOf(path), 0U);
    ScopedFd client;
    EXPECT_EQ(ConnectLocal(path, client), std::errc::connection_refused);

    LocalListener first;
    ASSERT_FALSE(first.Open(path));
    LocalListener second;
    EXPECT_EQ(second.Open(path), std::errc::address_in_use);
    fs::remove(path);
    ASSERT_FALSE(second.Open(path));
    first.Close();
    EXPECT_NE(ModeOf(path), 0U);
    second.Close();

    (void)scratch.Write("socket", "something else");
    EXPECT_EQ(second.Open(path), std::errc::file_exists);
    EXPECT_EQ(ReadFile(path), "something else");
}

}  // namespace
