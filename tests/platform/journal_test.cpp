#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "platform/linux/service/journal_sender.h"
#include "tests/platform/notify_socket.h"
#include "tests/support/scratch_folder.h"

namespace {

using std::chrono::minutes;
using testing::StartsWith;

// With a text that is a number.
JournalMessage Numbered(int number, std::size_t padding = 0) {
    return {
        JournalPriority::kInfo, "", std::to_string(number), {{"PAD", std::string(padding, 'x')}}};
}

std::string BeginOf(int number) {
    return "MESSAGE=" + std::to_string(number) + "\nPAD=";
}

std::string BeginOfGap(int count) {
    return "MESSAGE=Messages that are missing here, as the journal could not take them: " +
           std::to_string(count) + "\nMESSAGE_ID=" + kJournalGapId + "\nPRIORITY=4\n";
}

TEST(Journal, FieldsArriveInUpperCaseAndThoseOfTheHostAreNotReplaced) {
    const NotifySocket journal;
    JournalSender sender(journal.Path());
    sender.SetFields({{"host", "x"}});
    sender.Send({JournalPriority::kCritical,
                 "id",
                 "a\nb",
                 {{"key", "v=w"},
                  {"Message", "no"},
                  {"message_id", "no"},
                  {"PRIORITY", "7"},
                  {"Host", "no"}}});
    EXPECT_EQ(journal.Receive(), "HOST=x\nKEY=v=w\nMESSAGE\n" + std::string("\3\0\0\0\0\0\0\0", 8) +
                                     "a\nb\nMESSAGE_ID=id\nPRIORITY=2\n"
                                     "SYSLOG_IDENTIFIER=platform_tests\n");
}

TEST(Journal, OneThatDoesNotReadHoldsNobodyUpAndGetsEverythingLaterInOrder) {
    constexpr int kMessages = 2000;
    const NotifySocket journal;
    std::optional<JournalSender> sender(journal.Path());
    for (int number = 0; number < kMessages; ++number) {
        sender->Send(Numbered(number));
    }
    std::thread reader([&journal] {
        for (int number = 0; number < kMessages; ++number) {
            ASSERT_THAT(journal.Receive().value_or(""), StartsWith(BeginOf(number)));
        }
    });
    sender->Settle(minutes{1});
    sender.reset();  // what still waited would be lost
    reader.join();
}

TEST(Journal, WhatFindsNoRoomIsCountedWhereItIsMissing) {
    constexpr int kMessages = 3000;
    const NotifySocket journal;
    JournalSender sender(journal.Path());
    for (int number = 0; number < kMessages; ++number) {
        sender.Send(Numbered(number, 4096));  // together more than 8 MiB
    }
    int arrived = 0;
    std::string message = journal.Receive().value_or("");
    while (message.starts_with(BeginOf(arrived))) {
        ++arrived;
        message = journal.Receive().value_or("");
    }
    EXPECT_GT(arrived, kMessages / 2);
    EXPECT_THAT(message, StartsWith(BeginOfGap(kMessages - arrived)));
    sender.Send(Numbered(1, std::size_t{1} << 20U));  // no socket takes that
    sender.Send(Numbered(2));
    EXPECT_THAT(journal.Receive().value_or(""), StartsWith(BeginOfGap(1)));
    EXPECT_THAT(journal.Receive().value_or(""), StartsWith(BeginOf(2)));
}

TEST(Journal, OneThatComesLaterOrIsReplacedIsFound) {
    const ScratchFolder scratch;
    const std::filesystem::path place = scratch.Path() / "socket";
    JournalSender sender(place.string());
    for (int round = 1; round <= 2; ++round) {
        const NotifySocket journal;
        std::filesystem::remove(place);
        sender.Send(Numbered(0));
        std::filesystem::create_symlink(journal.Path(), place);
        sender.Send(Numbered(round));
        EXPECT_THAT(journal.Receive().value_or(""), StartsWith(BeginOfGap(1)));
        EXPECT_THAT(journal.Receive().value_or(""), StartsWith(BeginOf(round)));
    }
}

TEST(Journal, OneThatNeverReadsKeepsNoSenderFromEnding) {
    const NotifySocket journal;
    JournalSender sender(journal.Path());
    for (int number = 0; number < 2000; ++number) {
        sender.Send(Numbered(number));
    }
    sender.Settle(std::chrono::milliseconds{1});
}

}  // namespace
