// Each call for memory, files and threads fails once, wherever the service makes it: the n-th call
// of each kind, for every n, in every scenario. The service must not crash, hang or leak; it logs
// what happened, handles the next request, and finds its database at the next start.
#include <gtest/gtest.h>
#include <offlinetz.h>
#include <reader/spatial_index.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <map>
#include <set>
#include <system_error>
#include <thread>

#include "linked_service.h"
#include "log_capture.h"
#include "service_steps.h"
#include "system_calls.h"

namespace {

// Its own calls neither fail nor are observed. It can end the worker's thread from a report.
struct Client : Recorder {
    Return<void> timeZoneIdReport(const hidl_string& lat, const hidl_string& lon,
                                  const hidl_string& tzId) override {
        const calls::ScopedBypass own;
        return Recorder::timeZoneIdReport(lat, lon, tzId);
    }
    bool endsThread = false;
};

struct Scenario {
    const char* name;
    const char* active;  // Names of files.
    const char* backup;
    std::vector<Words> steps;
    // The right answers. After a failed call, an error is right as well.
    std::set<std::string> answers;
};

const Words kCreate = {"create"};
const Words kStart = {"start"};
const Words kLookup = {"lookup", "1", "2"};
const Words kSend = {"send", "b"};
const Words kInject = {"inject"};
const Scenario kScenarios[] = {
        {"opening", "a", "a", {kCreate, kStart, kLookup, kCreate, kLookup}, {"a"}},
        {"restore", "damaged", "a", {kCreate, kStart, kLookup}, {"a"}},
        {"restore of none", "-", "a", {kCreate, kStart, kLookup}, {"a"}},
        {"beside a bad backup", "a", "damaged", {kCreate, kStart, kLookup}, {"a"}},
        {"installation", "a", "a", {kCreate, kStart, kSend, kInject, kLookup}, {"a", "b"}},
        {"first installation", "-", "-", {kCreate, kSend, kInject, kStart, kLookup}, {"b"}},
        {"death", "a", "a", {kCreate, kStart, {"die"}, kStart, kLookup}, {"a"}},
        {"ended thread", "a", "a", {kCreate, kStart, {"end-thread"}, kLookup, kLookup}, {"a"}},
        {"entry", "a", "a", {{"fetch"}, kStart, kLookup}, {"a"}},
};

// At least one run of the scenario in which a call of the kind fails must show the line and end
// with the status.
struct Expectation {
    const char* scenario;
    calls::Kind kind;
    const char* line;
    int status;
};
// The next start finds no database although there was a good one. Only these rows allow that.
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
        // The good active file cannot be verified and is overwritten with the damaged backup; a
        // backup that could not be written whole is installed.
        {"beside a bad backup", calls::kOpen, kLost, 3},
        {"beside a bad backup", calls::kSeek, kLost, 3},
        {"beside a bad backup", calls::kMap, kLost, 3},
        {"installation", calls::kWrite, kLost, 3},
};

class FailingCalls : public testing::Test {
  protected:
    void SetUp() override {
        Kept().reserve(10000);  // Not to be allocated while allocations are counted.
        Kept().emplace_back(HIDL_FETCH_IOfflinetimezone("default"));
        mSteps.service = Kept().back().get();
        platform::SetLogReceiver([this](int, const char*, const std::string& message) {
            const calls::ScopedBypass own;
            mSeen.insert(message);
        });
    }
    void TearDown() override { platform::SetLogReceiver(nullptr); }

    // Service objects are never destroyed. Leak checkers find them here.
    static std::vector<sp<IOfflinetimezone>>& Kept() {
        static auto* kept = new std::vector<sp<IOfflinetimezone>>;
        return *kept;
    }

    void Fetch() {
        IOfflinetimezone* fetched = HIDL_FETCH_IOfflinetimezone("default");
        const calls::ScopedBypass own;
        if (fetched == nullptr) {
            mSeen.insert("no service");
        } else {
            Kept().emplace_back(fetched);
        }
    }

    // Does one step. A call that fails on the client's own thread shows as an exception.
    void Do(const Words& step) {
        try {
            if (step == kCreate) {
                lookupThread.CreateThread();
            } else if (step[0] == "fetch") {
                Fetch();
            } else if (step[0] == "end-thread") {
                mClient->endsThread = true;
            } else {
                EXPECT_TRUE(mSteps.Run(step));
            }
        } catch (const std::bad_alloc&) {
            // A client whose own call fails must not be registered by it.
            EXPECT_TRUE(step != kStart || lookupThread.registeredCb() == nullptr);
        } catch (const std::system_error& error) {
            const calls::ScopedBypass own;
            mSeen.insert("thrown " + std::string(error.what()).substr(0, 25));
        }
    }

    // The last answer that the client has when it has started anew and asked once more.
    std::string AnswerAfterStart() {
        lookupThread.CreateThread();
        mSteps.Run(kStart);
        mSteps.Run(kLookup);
        lookupThread.ExitThread();
        return mClient->Reports().empty() ? "none" : mClient->Reports().back().tzId;
    }

    // Each answer is right, or an error that a failed call explains; the last one is right, unless
    // the service says that it has no database, or has logged that it could not open it.
    void CheckAnswers(const Scenario& scenario, calls::Kind kind, bool hasFailed) {
        const bool isOpen = mSeen.count("Open DB failed\n") == 0;
        const std::string next = AnswerAfterStart();
        std::set<std::string> allowed = scenario.answers;
        if (hasFailed) allowed.insert({"error:malloc failed", "error:Server is not supportted"});
        // Without memory for the name of the only field, zones have no text.
        if (hasFailed && kind == calls::kAllocation) allowed.insert("");
        for (const ClientReport& report : mClient->Reports())
            EXPECT_EQ(1u, allowed.count(report.tzId)) << report;
        EXPECT_TRUE(next != "none" &&
                    (next[0] != 'e' || !isOpen || lookupThread.getServerStatus() == 3))
                << next;
    }

    // Marks the expectations that this run meets. A database may be lost where one of them says so.
    void CheckExpectations(const Scenario& scenario, calls::Kind kind, int status) {
        bool mayBeLost = false;
        for (size_t i = 0; i < std::size(kExpectations); ++i) {
            const Expectation& e = kExpectations[i];
            if (e.scenario != scenario.name || e.kind != kind || mSeen.count(e.line) == 0) continue;
            mayBeLost = mayBeLost || e.line == kLost;
            mIsMet[i] = mIsMet[i] || e.status == status;
        }
        EXPECT_EQ(mSeen.count(kLost) > 0, mayBeLost);
    }

    // Runs a scenario with the n-th call of the kind failing. True if there was such a call.
    bool RunSteps(const Scenario& scenario, calls::Kind kind, int n) {
        mClient = new Client;
        mClient->onReport = [client = mClient.get()] {
            if (std::exchange(client->endsThread, false)) pthread_exit(nullptr);
        };
        mSteps.client = mClient;
        calls::LetFail(kind, n);
        for (const Words& step : scenario.steps)
            Do(step);
        lookupThread.ExitThread();
        const bool hasFailed = calls::HasFailed();
        calls::LetFail(calls::kKinds, 0);
        mClient->endsThread = false;
        for (const ClientReport& report : mClient->Reports())
            mSeen.insert("answer " + report.tzId);
        return hasFailed;
    }

    // Makes the service release the client: the last one that started is the one that dies.
    void ReleaseClient() {
        mSteps.Run(kStart);
        mSteps.Run({"die"});
        mSteps.service->stopLookup(mClient);
        RestartWorker();
        mSteps.client.clear();
        mClient.clear();
    }

    // One run, with all checks.
    bool Run(const Scenario& scenario, calls::Kind kind, int n) {
        SCOPED_TRACE(std::string(scenario.name) + ", " + calls::Name(kind) + " " +
                     std::to_string(n));
        alarm(120);  // A hang ends the test.
        mSteps.Run({"files", scenario.active, scenario.backup});
        RestartWorker();
        mSeen.clear();
        const size_t kept = Kept().size();
        const long allocations = calls::LiveAllocations();
        const size_t descriptors = CountEntries("/proc/self/fd");
        const size_t threads = CountEntries("/proc/self/task");

        const bool hasFailed = RunSteps(scenario, kind, n);
        const int status = lookupThread.getServerStatus();
        CheckAnswers(scenario, kind, hasFailed);
        RestartWorker();
        const bool hadOne = scenario.active[0] != '-' || scenario.backup[0] != '-';
        if (hadOne && scenario.answers.count(AnswerAfterStart()) == 0) mSeen.insert(kLost);
        if (hasFailed) CheckExpectations(scenario, kind, status);
        EXPECT_TRUE(hasFailed || mSeen.count(kLost) == 0);
        ReleaseClient();

        mSeen.clear();
        // A thread that a client ended may linger.
        while (CountEntries("/proc/self/task") > threads)
            std::this_thread::yield();
        if (n > 0 && Kept().size() == kept) {
            EXPECT_EQ(allocations, calls::LiveAllocations());
        }
        EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
        return hasFailed;
    }

    ServiceDirectory mDirectory;
    ServiceSteps mSteps{9000};
    sp<Client> mClient;
    std::set<std::string> mSeen;  // What one run has logged, answered and thrown.
    bool mIsMet[std::size(kExpectations)] = {};
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
        const Expectation& e = kExpectations[i];
        EXPECT_TRUE(mIsMet[i]) << e.scenario << ", " << calls::Name(e.kind) << ": " << e.line;
    }
}

// The spatial index of 200,000 small entries that no bisection separates takes no more memory than
// its declaration says. If memory is short, lookups try again after 1, 2, 4, ... lookups.
TEST(FailingIndex, IsBoundedAndTriedSeldom) {
    constexpr long kRuns = 200000;
    RawDatabase raw;
    const auto add = [&raw](int32_t least, int32_t most) {
        raw.AddEntry({{least, least}, {most, most}}, 0, 0);
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
        // The index, its builder, and one of the arrays.
        calls::LetFail(calls::kAllocation, lookup == 0 ? 1 : lookup == 2 ? 2 : lookup == 5 ? 4 : 0);
        built += database->spatialIndex->Get(*database) != nullptr ? '1' : '0';
        EXPECT_EQ(before, calls::LiveBytes());
    }
    EXPECT_EQ("000000000", built);
    calls::LetFail(calls::kKinds, 0);
    while (database->spatialIndex->Get(*database) == nullptr)
        built += '0';
    EXPECT_EQ("0000000000", built);  // One more lookup to wait for.
    EXPECT_LT(calls::LiveBytes() - before, 22 * kRuns + 280 * 1024);
    EXPECT_LT(calls::MostBytes() - before, 72 * kRuns + (1 << 20));
}

// While the worker waits for any of these calls, other threads can ask for its state.
TEST_F(FailingCalls, StateIsToldDuringEveryCall) {
    calls::SetObserver([](calls::Kind, const std::string&) {
        const std::future<int32_t> state = std::async(std::launch::async, [] {
            return lookupThread.getDBVersion() + lookupThread.getServerStatus();
        });
        EXPECT_EQ(std::future_status::ready, state.wait_for(std::chrono::seconds(60)));
    });
    for (const Scenario& scenario : kScenarios)
        Run(scenario, calls::kKinds, 0);
    calls::SetObserver(nullptr);
}

// The C library: opening either gives a database that answers, or says that it cannot, and keeps
// nothing.
TEST(Library, OpensOrSaysThatItCannot) {
    const TemporaryDirectory directory;
    WriteFile("file", SampleDatabase("Zone/A", 1));
    for (const unsigned flags : {0u, unsigned{OFFLINETZ_MAP}}) {
        for (const calls::Kind kind :
             {calls::kAllocation, calls::kOpen, calls::kStatus, calls::kMap}) {
            int failures = 0;
            for (bool hasFailed = true; hasFailed;) {
                const long live = calls::LiveAllocations();
                calls::LetFail(kind, failures + 1);
                offlinetz_database* database;
                const offlinetz_status status = offlinetz_open("file", flags, &database);
                hasFailed = calls::HasFailed();
                calls::LetFail(kind, 0);
                int32_t id = -1;
                if (database != nullptr) offlinetz_find(database, 1, 2, &id, 1, nullptr, nullptr);
                EXPECT_EQ(status == OFFLINETZ_OK ? 0 : OFFLINETZ_NO_ZONE,
                          database != nullptr ? id : OFFLINETZ_NO_ZONE);
                if (kind != calls::kAllocation) {
                    EXPECT_EQ(hasFailed ? OFFLINETZ_UNREADABLE : OFFLINETZ_OK, status);
                }
                EXPECT_TRUE(status == OFFLINETZ_OK || hasFailed) << calls::Name(kind) << failures;
                offlinetz_close(database);
                EXPECT_EQ(live, calls::LiveAllocations()) << calls::Name(kind) << failures;
                failures += hasFailed ? 1 : 0;
            }
            const bool isUsed = kind != calls::kMap || flags == OFFLINETZ_MAP;
            EXPECT_EQ(isUsed, failures > 0) << calls::Name(kind);
        }
    }
}

}  // namespace
