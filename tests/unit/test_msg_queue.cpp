// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <numeric>

#include "ipc/msg_queue.h"
#include "prod_common_debug.h"
#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::error_line;
using test::printed;
using test::Prints;
using testing::HasSubstr;

namespace
{

int sends;
int lookups;

}  // namespace

extern "C" {

int msgsnd(int id, const void *message, std::size_t size, int flags)
{
    static const auto next = test::next(msgsnd, "msgsnd");
    ++sends;
    return next(id, message, size, flags);
}

int msgget(key_t key, int flags) noexcept
{
    static const auto next = test::next(msgget, "msgget");
    ++lookups;
    return next(key, flags);
}
}

namespace
{

constexpr mq_id_t kId = 0x8A00;
constexpr std::size_t kHeader = offsetof(msg_buf_t, data);

/** A test with the queue kId, which is gone afterwards. */
class Queue : public testing::Test
{
  protected:
    void TearDown() override { msgctl(msgget(static_cast<int>(kId), 0), IPC_RMID, nullptr); }

    static int kernel_id() { return msgget(static_cast<int>(kId), 0); }

    static std::size_t waiting()
    {
        msqid_ds status = {};
        return msgctl(kernel_id(), IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
    }

    static void fill()
    {
        const char record[1000] = {};
        while (mq_put(kId, record, sizeof(record), 0) == 1) {
        }
    }

    static int lines_about(int key)
    {
        char start[16];
        snprintf(start, sizeof(start), "0x%08x ", static_cast<unsigned int>(key));
        return test::occurrences(start, test::read_text("/var/run/id.mq"));
    }
};

TEST_F(Queue, Numbers)
{
    EXPECT_EQ(MQ_BEGIN, 35072);
    EXPECT_EQ(MQ_PORTAL_SEND_SMS, 35073);
    EXPECT_EQ(MQ_PORTAL_SEND_EMAIL, 35074);
    EXPECT_EQ(MQ_PORTAL_SEND_FACEBOOK, 35075);
    EXPECT_EQ(MQ_ID_NUM, 35076);
    EXPECT_EQ(MQ_MSG_TYPE, 35243);
}

TEST_F(Queue, IsCreatedOnceAndRegistered)
{
    const int id = get_or_create_mq(static_cast<int>(kId));
    EXPECT_GE(id, 0);
    EXPECT_EQ(get_or_create_mq(static_cast<int>(kId)), id);
    EXPECT_EQ(kernel_id(), id);
    char expected[128];
    snprintf(expected, sizeof(expected), "0x00008a00 id=%8d %5d/%-15s\n", id,
             static_cast<int>(getpid()), "test_unit_msg_q");
    EXPECT_THAT(test::read_text("/var/run/id.mq"), HasSubstr(expected));
    EXPECT_EQ(lines_about(static_cast<int>(kId)), 1);
    msqid_ds status;
    ASSERT_EQ(msgctl(id, IPC_STAT, &status), 0);
    EXPECT_EQ(status.msg_perm.mode & 0777, 0666);
}

TEST_F(Queue, AnyNumberIsAQueue)
{
    for (const unsigned int key : {1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        const int id = get_or_create_mq(static_cast<int>(key));
        EXPECT_GE(id, 0);
        EXPECT_EQ(mq_put(key, "x", 1, 0), 1);
        char got = '\0';
        EXPECT_EQ(mq_get(key, &got, 1, 0), 1);
        EXPECT_EQ(got, 'x');
        EXPECT_EQ(msgctl(id, IPC_RMID, nullptr), 0);
    }
}

TEST_F(Queue, NumberZeroIsANewQueueEachTime)
{
    const int before = lines_about(0);
    const int first = get_or_create_mq(0);
    const int second = get_or_create_mq(0);
    EXPECT_GE(first, 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(lines_about(0), before + 2);
    EXPECT_EQ(msgctl(first, IPC_RMID, nullptr), 0);
    EXPECT_EQ(msgctl(second, IPC_RMID, nullptr), 0);
}

TEST_F(Queue, CarriesRecordsInOrder)
{
    for (const char c : {'a', 'b', 'c'}) {
        EXPECT_EQ(mq_put(kId, &c, 1, 0), 1);
    }
    for (const char c : {'a', 'b', 'c'}) {
        char got = '\0';
        EXPECT_EQ(mq_get(kId, &got, 1, 1), 1);
        EXPECT_EQ(got, c);
    }
}

TEST_F(Queue, EverySizeArrivesWhole)
{
    for (const int size : {1, 2, 3, 4, 5, 8, 64, 1023, 1024, 1025, 4096, 8192}) {
        std::string record(static_cast<std::size_t>(size), '\0');
        std::iota(record.begin(), record.end(), static_cast<char>(size));
        std::string got(record.size() + 1, 'x');
        EXPECT_EQ(mq_put(kId, record.data(), size, 0), 1) << size;
        EXPECT_EQ(mq_get(kId, got.data(), size, 0), 1) << size;
        EXPECT_EQ(got, record + 'x') << "not a byte more";
    }
}

TEST_F(Queue, TheMessageAsTheKernelHasIt)
{
    EXPECT_EQ(mq_put(kId, "record", 6, 0), 1);
    struct {
        long type;
        char data[64];
    } message = {};
    EXPECT_EQ(msgrcv(kernel_id(), &message, sizeof(message.data), 0, IPC_NOWAIT), 6);
    EXPECT_EQ(message.type, 35243);
    EXPECT_STREQ(message.data, "record");
}

TEST_F(Queue, OtherTypesAreNotForUs)
{
    const struct {
        long type;
        char data[4];
    } other = {1, "abc"};
    ASSERT_EQ(msgsnd(get_or_create_mq(static_cast<int>(kId)), &other, 4, 0), 0);
    char got[4] = "xyz";
    EXPECT_EQ(printed([&] { EXPECT_EQ(mq_get(kId, got, 4, 0), 0); }), "");
    EXPECT_STREQ(got, "xyz");
}

TEST_F(Queue, BehindAShorterRecordAreZeros)
{
    for (const int room : {16, 2000}) {
        std::string got(static_cast<std::size_t>(room) + 1, 'x');
        EXPECT_EQ(mq_put(kId, "short", 5, 0), 1);
        EXPECT_EQ(mq_get(kId, got.data(), room, 0), 1);
        EXPECT_EQ(got, "short" + std::string(static_cast<std::size_t>(room) - 5, '\0') + 'x');
    }
}

TEST_F(Queue, ALongerRecordStaysQueued)
{
    char got[8] = "before";
    EXPECT_EQ(mq_put(kId, "longer than that", 16, 0), 1);
    for (const int block : {0, 1}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(mq_get(kId, got, 8, block), 0); }),
                    Prints(error_line("mq_get", "Failed(7) to msgrcv, Argument list too long.")));
        EXPECT_STREQ(got, "before");
    }
    char large[16];
    EXPECT_EQ(mq_get(kId, large, 16, 0), 1);
    EXPECT_EQ(memcmp(large, "longer than that", 16), 0);
}

TEST_F(Queue, AnEmptyQueueIsSilentWithoutWaiting)
{
    char got[4] = "abc";
    for (const prod_dbg_lvl_t level : {PROD_DBG_ERROR, PROD_DBG_TRACE}) {
        EXPECT_EQ(test::printed_at(level, [&] { EXPECT_EQ(mq_get(kId, got, 4, 0), 0); }), "");
    }
    EXPECT_STREQ(got, "abc");
}

TEST_F(Queue, ArgumentsThatAreNone)
{
    char byte = 'x';
    for (const int block : {0, 1}) {
        EXPECT_THAT(printed([=] {
                        EXPECT_EQ(mq_put(kId, nullptr, 1, block), 0);
                        EXPECT_EQ(mq_put(kId, "x", 0, block), 0);
                        EXPECT_EQ(mq_put(kId, "x", -1, block), 0);
                        EXPECT_EQ(mq_put(kId, "x", INT_MIN, block), 0);
                    }),
                    Prints(error_line("mq_put", "invalid parameters.") +
                           error_line("mq_put", "invalid parameters.") +
                           error_line("mq_put", "invalid parameters.") +
                           error_line("mq_put", "invalid parameters.")));
        EXPECT_THAT(printed([&] {
                        EXPECT_EQ(mq_get(kId, nullptr, 1, block), 0);
                        EXPECT_EQ(mq_get(kId, &byte, 0, block), 0);
                        EXPECT_EQ(mq_get(kId, &byte, -1, block), 0);
                    }),
                    Prints(error_line("mq_get", "invalid parameters.") +
                           error_line("mq_get", "invalid parameters.") +
                           error_line("mq_get", "invalid parameters.")));
    }
    EXPECT_EQ(byte, 'x');
    EXPECT_LT(kernel_id(), 0) << "no queue was made for them";
}

#ifdef OWN_ALLOCATOR
TEST_F(Queue, MemoryIsShort)
{
    std::string record(5000, 'r');
    const auto without_memory = [&](const std::function<void()> &code) {
        return printed([&] {
            const test::WithoutMemory refused{record.size() + kHeader};
            code();
        });
    };
    EXPECT_THAT(without_memory([&] { EXPECT_EQ(mq_put(kId, record.data(), 5000, 1), 0); }),
                Prints(error_line("mq_put", "Out of memory")));
    EXPECT_EQ(waiting(), 0U);
    EXPECT_EQ(mq_put(kId, record.data(), 5000, 0), 1);
    EXPECT_THAT(without_memory([&] { EXPECT_EQ(mq_get(kId, record.data(), 5000, 1), 0); }),
                Prints(error_line("mq_get", "Out of memory.")));
    EXPECT_EQ(waiting(), 1U) << "nothing is lost";
}
#endif

TEST_F(Queue, ARecordBeyondTheKernelsLimit)
{
    const std::string record(8193, 'r');
    const std::string message = error_line("mq_put", "Failed(22) to msgsnd, Invalid argument.");
    for (int i = 0; i < 2; ++i) {  // in a queue that is new, and in one that is known
        EXPECT_THAT(printed([&] { EXPECT_EQ(mq_put(kId, record.data(), 8193, 1), 0); }),
                    Prints(message));
    }
    EXPECT_EQ(mq_put(kId, "x", 1, 0), 1) << "the queue is as it was";
    EXPECT_EQ(waiting(), 1U);
}

TEST_F(Queue, NoQueueIsLeft)
{
    // Also none for those that knew one.
    for (const bool by_a_reader : {false, true}) {
        EXPECT_EQ(mq_put(kId, "x", 1, 0), 1);
        ASSERT_EQ(msgctl(kernel_id(), IPC_RMID, nullptr), 0);
        test::write_text("/proc/sys/kernel/msgmni", "0\n");
        char byte = 'x';
        EXPECT_THAT(printed([&] {
                        EXPECT_EQ(by_a_reader ? mq_get(kId, &byte, 1, 1) : mq_put(kId, "x", 1, 1),
                                  0);
                    }),
                    Prints(error_line("get_or_create_mq",
                                      "Failed(28) to create MQ, No space left on device.")));
        test::write_text("/proc/sys/kernel/msgmni", "32000\n");
    }

    test::write_text("/proc/sys/kernel/msgmni", "0\n");
    const std::string message =
        error_line("get_or_create_mq", "Failed(28) to create MQ, No space left on device.");
    char byte = 'x';
    EXPECT_THAT(printed([&] {
                    EXPECT_LT(get_or_create_mq(static_cast<int>(kId)), 0);
                    EXPECT_EQ(mq_put(kId, "x", 1, 1), 0);
                    EXPECT_EQ(mq_get(kId, &byte, 1, 1), 0);
                }),
                Prints(message + message + message));
    test::write_text("/proc/sys/kernel/msgmni", "32000\n");
    EXPECT_EQ(mq_put(kId, "x", 1, 0), 1);
}

// ---- a full queue -----------------------------------------------------------------------------

std::string full()
{
    return error_line("mq_put", "Failed(11) to msgsnd, Resource temporarily unavailable.");
}

TEST_F(Queue, AFullQueueIsTriedOnceWithoutWaiting)
{
    fill();
    const char record[1000] = {};
    const test::SimulatedTime time;
    sends = 0;
    EXPECT_THAT(printed([&] { EXPECT_EQ(mq_put(kId, record, 1000, 0), 0); }), Prints(full()));
    EXPECT_EQ(sends, 1);
    EXPECT_TRUE(time.sleeps().empty());
}

TEST_F(Queue, AFullQueueIsWaitedForThreeSeconds)
{
    fill();
    const char record[1000] = {};
    test::SimulatedTime time;
    sends = 0;
    EXPECT_THAT(printed([&] { EXPECT_EQ(mq_put(kId, record, 1000, 1), 0); }), Prints(full()));
    EXPECT_EQ(time.sleeps(), std::vector<long long>(30, 100000));
    EXPECT_EQ(sends, 31);
    // Whole seconds are compared: from the end of one, three more have passed in a little over two.
    time.pass(0.95);
    EXPECT_THAT(printed([&] { EXPECT_EQ(mq_put(kId, record, 1000, -1), 0); }), Prints(full()));
    EXPECT_EQ(time.sleeps().size(), 30U + 21U);
}

TEST_F(Queue, ThreeRealSeconds)
{
    fill();
    const char record[1000] = {};
    const double passed = test::seconds([&] {
        EXPECT_THAT(printed([&] { EXPECT_EQ(mq_put(kId, record, 1000, 1), 0); }), Prints(full()));
    });
    EXPECT_GE(passed, 1.9) << "whole seconds, the first of which had begun";
}

TEST_F(Queue, APutGoesOnAsSoonAsThereIsRoom)
{
    fill();
    const char record[1000] = {};
    test::Child reader{[](test::Child &) {
        char got[1000];
        usleep(250000);
        EXPECT_EQ(mq_get(kId, got, sizeof(got), 0), 1);
    }};
    EXPECT_EQ(printed([&] { EXPECT_EQ(mq_put(kId, record, 1000, 1), 1); }), "");
    reader.expect_status(0);
}

// ---- a waiting reader -------------------------------------------------------------------------

TEST_F(Queue, AReaderWaitsForARecord)
{
    test::Child writer{[](test::Child &) {
        usleep(200000);
        EXPECT_EQ(mq_put(kId, "late", 5, 0), 1);
    }};
    char got[16] = "";
    EXPECT_EQ(mq_get(kId, got, sizeof(got), 1), 1);
    EXPECT_STREQ(got, "late");
    writer.expect_status(0);
}

TEST_F(Queue, ASignalEndsTheWait)
{
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGALRM, &quiet, nullptr);
    char got[16] = "before";
    const test::Alarms every_second;
    EXPECT_THAT(printed([&] { EXPECT_EQ(mq_get(kId, got, sizeof(got), 1), 0); }),
                Prints(error_line("mq_get", "Failed(4) to msgrcv, Interrupted system call.")));
    EXPECT_STREQ(got, "before");
}

TEST_F(Queue, AQueueThatIsRemovedEndsTheWait)
{
    get_or_create_mq(static_cast<int>(kId));
    char got[16] = "";
    {
        // Again and again: a busy machine may not be waiting yet the first time.
        const test::Child remover{[](test::Child &) {
            for (;;) {
                usleep(200000);
                msgctl(kernel_id(), IPC_RMID, nullptr);
            }
        }};
        EXPECT_THAT(printed([&] { EXPECT_EQ(mq_get(kId, got, sizeof(got), 1), 0); }),
                    Prints(error_line("mq_get", "Failed(43) to msgrcv, Identifier removed.")));
    }
    EXPECT_EQ(mq_put(kId, "again", 6, 0), 1) << "the next call makes a new one";
    EXPECT_EQ(mq_get(kId, got, sizeof(got), 0), 1);
}

// ---- queues that are gone ---------------------------------------------------------------------

TEST_F(Queue, OneThatWasRemovedIsMadeAnewByTheNextRecord)
{
    for (const int last : {'p', 'g'}) {
        SCOPED_TRACE(static_cast<char>(last));
        char record = 0;
        EXPECT_EQ(mq_put(kId, "a", 1, 0), 1);
        if (last == 'g') {
            EXPECT_EQ(mq_get(kId, &record, 1, 0), 1);
        }
        const int before = kernel_id();
        const int lines = lines_about(static_cast<int>(kId));
        ASSERT_EQ(msgctl(before, IPC_RMID, nullptr), 0);

        EXPECT_EQ(printed([] { EXPECT_EQ(mq_put(kId, "b", 1, 0), 1); }), "");
        EXPECT_NE(kernel_id(), before);
        EXPECT_EQ(lines_about(static_cast<int>(kId)), lines + 1);
        EXPECT_EQ(mq_get(kId, &record, 1, 0), 1);
        EXPECT_EQ(record, 'b');
    }
}

TEST_F(Queue, OneThatWasRemovedIsMadeAnewByTheNextReader)
{
    EXPECT_EQ(mq_put(kId, "a", 1, 0), 1);
    ASSERT_EQ(msgctl(kernel_id(), IPC_RMID, nullptr), 0);
    char record = 'x';
    EXPECT_EQ(printed([&] { EXPECT_EQ(mq_get(kId, &record, 1, 0), 0); }), "") << "it is empty";
    EXPECT_EQ(record, 'x');
    EXPECT_GE(kernel_id(), 0);
}

TEST_F(Queue, OneThatAnotherProgramMadeAnewIsFound)
{
    EXPECT_EQ(mq_put(kId, "a", 1, 0), 1);
    ASSERT_EQ(msgctl(kernel_id(), IPC_RMID, nullptr), 0);
    const int another = msgget(static_cast<int>(kId), IPC_CREAT | 0666);
    ASSERT_GE(another, 0);
    const int lines = lines_about(static_cast<int>(kId));
    EXPECT_EQ(mq_put(kId, "b", 1, 0), 1);
    EXPECT_EQ(kernel_id(), another);
    EXPECT_EQ(waiting(), 1U);
    EXPECT_EQ(lines_about(static_cast<int>(kId)), lines) << "it was not this call that made it";
}

TEST_F(Queue, RecordsForSeveralQueuesStayApart)
{
    constexpr mq_id_t kOther = kId + 1;
    for (const char c : {'a', 'b', 'c'}) {
        const char other = static_cast<char>(c - 'a' + 'A');
        EXPECT_EQ(mq_put(kId, &c, 1, 0), 1);
        EXPECT_EQ(mq_put(kOther, &other, 1, 0), 1);
    }
    std::string here;
    std::string there;
    char record;
    while (mq_get(kId, &record, 1, 0) == 1) {
        here += record;
        ASSERT_EQ(mq_get(kOther, &record, 1, 0), 1);
        there += record;
    }
    EXPECT_EQ(here, "abc");
    EXPECT_EQ(there, "ABC");
    EXPECT_EQ(mq_get(kOther, &record, 1, 0), 0);
    msgctl(msgget(static_cast<int>(kOther), 0), IPC_RMID, nullptr);
}

TEST_F(Queue, TheLastOneIsRemembered)
{
    char record = 'x';
    EXPECT_EQ(mq_put(kId, "a", 1, 0), 1);
    lookups = 0;
    EXPECT_EQ(mq_get(kId, &record, 1, 0), 1);
    EXPECT_EQ(mq_put(kId, "b", 1, 0), 1);
    EXPECT_EQ(lookups, 0);
    EXPECT_EQ(mq_put(0, "c", 1, 0), 1);
    EXPECT_EQ(mq_get(0, &record, 1, 0), 0) << "a new queue each time";
}

// ---- many processes ---------------------------------------------------------------------------

TEST_F(Queue, OfSixtyFourFirstUsersOneCreatesIt)
{
    for (int round = 0; round < 5; ++round) {
        const int before = lines_about(static_cast<int>(kId));
        test::all_at_once(
            64, [](int number) { EXPECT_EQ(mq_put(kId, &number, sizeof(number), 0), 1); });
        EXPECT_EQ(waiting(), 64U);
        EXPECT_EQ(lines_about(static_cast<int>(kId)), before + 1);
        msgctl(kernel_id(), IPC_RMID, nullptr);
    }
}

constexpr int kWriters = 8;
constexpr int kReaders = 4;
constexpr int kEach = 125000;  // a million in all, where the programs run at the machine's speed

/** A record whose bytes tell whether it is whole. */
struct Stamped {
    int writer;  // -1 ends a reader
    int number;
    unsigned char pattern[24];

    Stamped(int from, int count) : writer(from), number(count)
    {
        memset(pattern, from * 31 + count, sizeof(pattern));
    }
    bool whole() const
    {
        const Stamped same{writer, number};
        return memcmp(this, &same, sizeof(same)) == 0;
    }
};

struct Tally {
    std::atomic<unsigned char> seen[kWriters][kEach];
    std::atomic<int> torn;
    std::atomic<int> out_of_order;
};

void write_all(int writer)
{
    const int count = test::repetitions(kEach);
    for (int i = 0; i < count;) {
        const Stamped record{writer, i};
        // A loaded machine may leave the queue full for longer than one call waits.
        i += mq_put(kId, &record, sizeof(record), 1);
    }
}

void read_all(Tally &tally)
{
    int last[kWriters];
    std::fill_n(last, kWriters, -1);
    for (;;) {
        Stamped record{0, 0};
        ASSERT_EQ(mq_get(kId, &record, sizeof(record), 1), 1);
        if (record.writer < 0) {
            return;
        }
        if (!record.whole() || record.writer >= kWriters || record.number >= kEach) {
            ++tally.torn;
            continue;
        }
        ++tally.seen[record.writer][record.number];
        tally.out_of_order += record.number <= last[record.writer];
        last[record.writer] = record.number;
    }
}

TEST_F(Queue, AMillionRecordsFromEightWritersToFourReaders)
{
    auto *const tally = static_cast<Tally *>(
        mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::vector<std::unique_ptr<test::Child>> readers;
    for (int i = 0; i < kReaders; ++i) {
        readers.push_back(std::make_unique<test::Child>([=](test::Child &) { read_all(*tally); }));
    }
    test::all_at_once(kWriters, write_all);
    for (int i = 0; i < kReaders; ++i) {
        const Stamped end{-1, 0};
        while (mq_put(kId, &end, sizeof(end), 1) == 0) {
        }
    }
    for (const auto &reader : readers) {
        reader->expect_status(0);
    }

    const int count = test::repetitions(kEach);
    int wrong = 0;
    for (const auto &writer : tally->seen) {
        for (int i = 0; i < kEach; ++i) {
            wrong += writer[i] != (i < count ? 1 : 0);
        }
    }
    EXPECT_EQ(wrong, 0) << "lost or repeated";
    EXPECT_EQ(tally->torn, 0);
    EXPECT_EQ(tally->out_of_order, 0) << "each reader sees a writer's records in their order";
    EXPECT_EQ(waiting(), 0U);
    munmap(tally, sizeof(Tally));
}

}  // namespace
