// Every call for memory, files and threads fails once, wherever the service makes it: the n-th of
// each kind, for every n, in every scenario. Nothing crashes, hangs or is lost, the log says what
// it must, the next request is handled, and after the next start the database is there.
#include <Offlinetimezone.h>
#include <WorkerThread.h>
#include <gtest/gtest.h>
#include <platform/death_registry.h>
#include <reader/spatial_index.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <map>
#include <new>
#include <set>
#include <sstream>
#include <thread>

#include "database/encode.h"
#include "log_capture.h"
#include "raw_database.h"
#include "recorder.h"
#include "sample_databases.h"
#include "service_files.h"
#include "system_calls.h"
#include "temporary_directory.h"

using android::sp;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;
namespace fs = std::filesystem;

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {
extern WorkerThread& lookupThread;
}

namespace {

struct Client : Recorder {
    android::hardware::Return<void> timeZoneIdReport(
            const android::hardware::hidl_string& lat, const android::hardware::hidl_string& lon,
            const android::hardware::hidl_string& tzId) override {
        const calls::ScopedBypass own;
        Recorder::timeZoneIdReport(lat, lon, tzId);
        if (std::exchange(mEndsThread, false)) pthread_exit(nullptr);
        return android::hardware::Void();
    }
    bool mEndsThread = false;
};

struct Scenario {
    const char* name;
    const char* active;  // Names of files.
    const char* backup;
    const char* steps;
    // What may be answered when a call has failed, beside what LookupTzId says about that.
    std::set<std::string> answers;
};

const Scenario kScenarios[] = {
        {"opening", "a", "a", "create start ask create ask", {"A"}},
        {"restore", "damaged", "a", "create start ask", {"A"}},
        {"restore of none", "", "a", "create start ask", {"A"}},
        {"beside a bad backup", "a", "damaged", "create start ask", {"A"}},
        {"installation", "a", "a", "create start send inject ask", {"A", "B"}},
        {"first installation", "", "", "create send inject start ask", {"B"}},
        {"death", "a", "a", "create start die start ask", {"A"}},
        {"ended thread", "a", "a", "create start end-thread ask ask", {"A"}},
        {"entry", "a", "a", "fetch start ask", {"A"}},
};

// What must be seen in some run of the scenario with a failing call of the kind, beside the status
// at its end.
struct Expectation {
    const char* scenario;
    calls::Kind kind;
    const char* line;
    int status;
};
// The next start finds no database, though there was a good one: nowhere but in these rows.
const char kLost[] = "lost";
const char kCopyFailed[] = "-------- Copy BACKUP DB failed--------";
const Expectation kExpectations[] = {
        {"opening", calls::kOpen, "open file " ACTIVE " failed Too many open files", 1},
        {"opening", calls::kSeek, "open file " ACTIVE " length -1", 1},
        {"opening", calls::kMap, "mmap file failed, error: Cannot allocate memory", 1},
        {"opening", calls::kOpen, "Open DB failed\n", 1},
        {"opening", calls::kSeek, "Open DB failed\n", 1},
        {"opening", calls::kMap, "Open DB failed\n", 1},
        {"opening", calls::kAllocation, "Open DB failed\n", 1},
        {"opening", calls::kAllocation, "answer error:malloc failed", 1},
        {"opening", calls::kThread, "thrown thread constructor failed", 1},
        {"entry", calls::kThread, "no service", 0},
        {"entry", calls::kAllocation, "no service", 1},
        {"restore", calls::kOpen, "open file " BACKUP " failed Too many open files", 3},
        {"restore", calls::kStatus, "open file " BACKUP " failed Input/output error", 3},
        {"restore", calls::kStream, "open file " BACKUP " failed Cannot allocate memory", 3},
        {"restore", calls::kStream, "open file " ACTIVE " failed Cannot allocate memory", 3},
        {"restore", calls::kRead, "read file " BACKUP " error Input/output error", 3},
        {"restore", calls::kCut, "read file " ACTIVE " error Input/output error", 3},
        {"restore", calls::kWrite, "read file " ACTIVE " error No space left on device", 3},
        {"restore", calls::kFlush, "read file " ACTIVE " error No space left on device", 1},
        {"restore", calls::kSynchronise, "read file " ACTIVE " error Input/output error", 1},
        {"restore", calls::kWrite, kCopyFailed, 3},
        {"restore", calls::kRead, "--------  BACKUP DB is destroy also--------", 3},
        {"installation", calls::kAllocation, "download DB data lost", 1},
        {"installation", calls::kOpen, "open  file  Too many open files", 1},
        {"installation", calls::kStream, "open  file  Cannot allocate memory", 1},
        {"installation", calls::kCut, "after  write it to backup Input/output error", 1},
        {"installation", calls::kWrite, "after  write it to backup No space left on device", 3},
        {"installation", calls::kOpen, kCopyFailed, 3},
        {"installation", calls::kSynchronise, kCopyFailed, 3},
        // A restore takes place though the active file is good, from a backup that is not; what did
        // not fit into the backup is installed.
        {"beside a bad backup", calls::kOpen, kLost, 3},
        {"beside a bad backup", calls::kSeek, kLost, 3},
        {"beside a bad backup", calls::kMap, kLost, 3},
        {"installation", calls::kWrite, kLost, 3},
};

size_t CountEntries(const char* directory) {
    return static_cast<size_t>(
            std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

class FailingCalls : public testing::Test {
  protected:
    void SetUp() override {
        fs::create_directory("offlinetz");
        Kept().reserve(10000);  // Not made while allocations are counted.
        Kept().emplace_back(HIDL_FETCH_IOfflinetimezone("default"));
        mService = Kept().back().get();
        mFiles = {{"a", SampleDatabase("A", 1, 9000)}, {"b", SampleDatabase("B", 2, 7000)}};
        mFiles["damaged"] = mFiles["b"];
        mFiles["damaged"][100] ^= 1;
        platform::SetLogReceiver([this](int, const char*, const std::string& message) {
            const calls::ScopedBypass own;
            mSeen.insert(message);
        });
    }
    void TearDown() override { platform::SetLogReceiver(nullptr); }

    void PutFiles(const Scenario& scenario) {
        for (const auto& [path, name] :
             {std::pair(ACTIVE, scenario.active), {BACKUP, scenario.backup}}) {
            fs::remove(path);
            if (name[0] != '\0') WriteFile(path, mFiles[name]);
        }
    }

    // A service as in a process of its own.
    static void Restart() {
        lookupThread.~WorkerThread();
        new (&lookupThread) WorkerThread("OfflinetimezoneThread");
    }

    void Do(const std::string& step, const sp<Client>& client) {
        if (step == "create") {
            lookupThread.CreateThread();
        } else if (step == "fetch") {
            IOfflinetimezone* fetched = HIDL_FETCH_IOfflinetimezone("default");
            const calls::ScopedBypass own;
            if (fetched == nullptr) {
                mSeen.insert("no service");
            } else {
                Kept().emplace_back(fetched);
            }
        } else if (step == "start") {
            mService->startLookup(client);
        } else if (step == "ask") {
            mService->Lookup("1", "2");
        } else if (step == "end-thread") {
            client->mEndsThread = true;
        } else if (step == "die") {
            platform::EndOwnerOf(client);
        } else if (step == "inject") {
            mService->injectDB();
        } else {
            const Bytes& file = mFiles["b"];
            const auto half = file.begin() + static_cast<long>(file.size() / 2);
            const auto total = static_cast<uint32_t>(file.size());
            mService->downloadDB(Bytes(file.begin(), half), 0, 0, 1);
            mService->downloadDB(Bytes(half, file.end()), 0, 0, 2);
            mService->downloadDB({}, 0, total, 3);
        }
    }

    // The last answer that the client gets when it starts anew and asks.
    std::string Ask(const sp<Client>& client) {
        lookupThread.CreateThread();
        mService->startLookup(client);
        mService->Lookup("1", "2");
        lookupThread.ExitThread();
        return client->Reports().empty() ? "none" : client->Reports().back().tzId;
    }

    // One run, with the n-th call of the kind failing. Whether there was one.
    bool Run(const Scenario& scenario, calls::Kind kind, int n) {
        SCOPED_TRACE(std::string(scenario.name) + ", " + calls::Name(kind) + " " +
                     std::to_string(n));
        alarm(120);  // A hang ends the test.
        PutFiles(scenario);
        Restart();
        mSeen.clear();
        const size_t kept = Kept().size();
        const long allocations = calls::LiveAllocations();
        const size_t descriptors = CountEntries("/proc/self/fd");
        const size_t threads = CountEntries("/proc/self/task");
        bool failed;
        {
            const sp<Client> client = new Client;
            std::istringstream steps(scenario.steps);
            calls::LetFail(kind, n);
            for (;;) {
                std::string step;
                {
                    const calls::ScopedBypass own;
                    if (!(steps >> step)) break;
                }
                try {
                    Do(step, client);
                } catch (const std::bad_alloc&) {
                    // The caller's own request; who sees it fail is not registered by it.
                    if (step == "start") {
                        EXPECT_EQ(nullptr, lookupThread.registeredCb());
                    }
                } catch (const std::system_error& error) {
                    const calls::ScopedBypass own;
                    mSeen.insert("thrown " + std::string(error.what()).substr(0, 25));
                }
            }
            lookupThread.ExitThread();
            failed = calls::HasFailed();
            calls::LetFail(calls::kKinds, 0);
            client->mEndsThread = false;
            const int status = lookupThread.getServerStatus();

            for (const ClientReport& report : client->Reports())
                mSeen.insert("answer " + report.tzId);
            const std::string next = Ask(client);
            const bool isOpen = mSeen.count("Open DB failed\n") == 0;
            for (const ClientReport& report : client->Reports()) {
                const bool isRight = scenario.answers.count(report.tzId) > 0;
                const bool isExcused =
                        failed && (report.tzId == "error:malloc failed" ||
                                   report.tzId == "error:Server is not supportted" ||
                                   // The name of the only field is missing.
                                   (report.tzId.empty() && kind == calls::kAllocation));
                EXPECT_TRUE(isRight || isExcused) << report.tzId;
            }
            // What was told to be running without a database stays so.
            EXPECT_TRUE(next != "none" &&
                        (next[0] != 'e' || !isOpen || lookupThread.getServerStatus() == 3))
                    << next;
            client->mEndsThread = false;
            Restart();
            const bool hadOne = scenario.active[0] != '\0' || scenario.backup[0] != '\0';
            const bool isLost = hadOne && scenario.answers.count(Ask(client)) == 0;
            if (isLost) mSeen.insert(kLost);
            bool isKnown = false;
            for (size_t i = 0; failed && i < std::size(kExpectations); ++i) {
                const Expectation& e = kExpectations[i];
                if (e.scenario != scenario.name || e.kind != kind || mSeen.count(e.line) == 0)
                    continue;
                isKnown = isKnown || e.line == kLost;
                mIsMet[i] = mIsMet[i] || e.status == status;
            }
            EXPECT_EQ(isLost, isKnown);
            // Gone, so that nothing holds it: the one who starts last is the one who dies.
            mService->startLookup(client);
            platform::EndOwnerOf(client);
            mService->stopLookup(client);
            Restart();
        }
        mSeen.clear();
        while (CountEntries("/proc/self/task") > threads)  // One that a client ended may linger.
            std::this_thread::yield();
        if (n > 0 && Kept().size() == kept) {
            EXPECT_EQ(allocations, calls::LiveAllocations());
        }
        EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
        return failed;
    }

    TemporaryDirectory mDirectory;
    std::map<std::string, Bytes> mFiles;
    std::set<std::string> mSeen;  // Log lines, answers, and what was thrown, of one run.
    bool mIsMet[std::size(kExpectations)] = {};
    // Service objects are never destroyed; these are kept where leak checkers see them.
    static std::vector<sp<IOfflinetimezone>>& Kept() {
        static auto* kept = new std::vector<sp<IOfflinetimezone>>;
        return *kept;
    }
    IOfflinetimezone* mService = nullptr;
};

TEST_F(FailingCalls, EachFailsOnce) {
    std::map<calls::Kind, int> most;
    for (const Scenario& scenario : kScenarios) {
        Run(scenario, calls::kKinds, 0);  // Makes what is made once.
        for (int k = 0; k < calls::kKinds; ++k) {
            const auto kind = static_cast<calls::Kind>(k);
            int n = 1;
            while (Run(scenario, kind, n) && !HasFailure())
                ++n;
            most[kind] = std::max(most[kind], n - 1);
        }
    }
    for (const auto& [kind, n] : most) {
        std::printf("%s: up to %d in a scenario\n", calls::Name(kind), n);
        EXPECT_GT(n, 0) << calls::Name(kind);
    }
    for (size_t i = 0; i < std::size(kExpectations); ++i) {
        EXPECT_TRUE(mIsMet[i]) << kExpectations[i].scenario << ", "
                               << calls::Name(kExpectations[i].kind) << ": "
                               << kExpectations[i].line;
    }
}

// A table of 200,000 boxes in few bytes, which no halving tells apart: its index takes what its
// declaration says. Where memory is short it is tried again after 1, 2, 4, ... lookups.
TEST(FailingIndex, IsBoundedAndTriedSeldom) {
    constexpr long kRuns = 200000;
    RawDatabase raw;
    raw.boxTable.reserve(6 * kRuns + 48);
    const auto add = [&raw](int32_t least, int32_t most) {
        for (const int32_t number : {least, least, most, most, 0, 0})
            offlinetz::AppendSigned(number, &raw.boxTable);
    };
    add(-INT32_MAX, -INT32_MAX);
    for (int i = 2; i < kRuns; ++i)
        add(0, i % 2);
    add(INT32_MAX, INT32_MAX);
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    const long before = calls::LiveBytes();
    std::string built;
    for (int lookup = 0; lookup < 9; ++lookup) {
        // Its object, its builder, and one of the arrays.
        calls::LetFail(calls::kAllocation, lookup == 0 ? 1 : lookup == 2 ? 2 : lookup == 5 ? 4 : 0);
        built += database->spatialIndex->Get(*database) != nullptr ? '1' : '0';
        EXPECT_EQ(before, calls::LiveBytes());
    }
    EXPECT_EQ("000000000", built);
    calls::LetFail(calls::kKinds, 0);
    while (database->spatialIndex->Get(*database) == nullptr)
        built += '0';
    EXPECT_EQ("0000000000", built);  // One lookup more to wait for.
    EXPECT_LT(calls::LiveBytes() - before, 22 * kRuns + 280 * 1024);
    EXPECT_LT(calls::MostBytes() - before, 72 * kRuns + (1 << 20));
}

// Whatever the worker waits for: nobody who asks for its state waits with it.
TEST_F(FailingCalls, StateIsToldDuringEveryCall) {
    calls::SetObserver([](calls::Kind, const std::string&) {
        std::promise<int32_t> state;
        std::thread asker([&] {
            state.set_value(lookupThread.getDBVersion() + lookupThread.getServerStatus());
        });
        EXPECT_EQ(std::future_status::ready, state.get_future().wait_for(std::chrono::seconds(60)));
        asker.join();
    });
    for (const Scenario& scenario : kScenarios)
        Run(scenario, calls::kKinds, 0);
    calls::SetObserver(nullptr);
}

}  // namespace
