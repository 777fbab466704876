// The library as the platform loads it: what it logs, and its clients' calls from reports, from
// link calls, from forked processes and at the process's end.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <regex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "loaded_service.h"
#include "log_capture.h"
#include "service_steps.h"
#include "transcript.h"

namespace {

class LibraryTest : public testing::Test {
  protected:
    ServiceDirectory mDirectory;
    LogCapture mLog;
};

// Zones A and B, which overlap, one with an empty name, and one whose record cannot be read.
Bytes OverlappingZones() {
    RawDatabase raw;
    const uint32_t records[] = {raw.AddRecord("\"Zone/A\""), raw.AddRecord("\"Zone/B\""),
                                raw.AddRecord("\"\""), raw.AddRecord("")};
    raw.metadata.back() = 200;  // A length past the content.
    for (int32_t i = 0; i < 4; ++i) {
        const int32_t west = 100000 * i;
        raw.AddRing(records[i],
                    {{0, west}, {100000, west}, {100000, west + 110000}, {0, west + 110000}});
    }
    return raw.File();
}

// Every line that the service logs. The front's lines follow the step that made them. The worker
// logs at its own pace: "unload" waits for it and gives its lines.
TEST_F(LibraryTest, LogsAsTheTranscriptSays) {
    ServiceSteps steps(0);
    steps.files["zones"] = steps.files["damaged"] = OverlappingZones();
    steps.files["damaged"][9] ^= 4;
    steps.files["junk"] = WithTrailer(Bytes(40, 'x'));
    steps.files["short"] = Bytes(20, 'x');
    std::unique_ptr<LoadedService> service;
    std::vector<LogLine> workerLines;
    const auto run = [&](const std::string& step) {
        Words lines;
        if (step == "fetch") {
            service->Fetch();
        } else if (step == "unload") {
            service.reset();
        } else if (!steps.Run(SplitWords(step))) {
            lines.push_back("this cannot be done");
        }
        for (const LogLine& line : mLog.Take()) {
            if (line.tag != "OfflinetimezoneService") {
                workerLines.push_back(line);
                continue;
            }
            // These differ from run to run, and are never 0.
            static const std::regex kVarying("(pid : |starttime: |who: 0x)[1-9a-f][0-9a-f]*");
            lines.push_back(std::to_string(line.priority) +
                            Bars(std::regex_replace(line.message, kVarying, "$1...")));
        }
        if (step != "unload") return lines;
        for (const LogLine& line : std::exchange(workerLines, {})) {
            lines.push_back(std::to_string(line.priority) + " " + line.tag.substr(15) +
                            Bars(line.message));
        }
        return lines;
    };
    const auto begin = [&] {
        steps.client = new Recorder;
        service = std::make_unique<LoadedService>();
        steps.service = service->Get();
        mLog.Take();
    };
    CheckTranscript(OFFLINETZ_TESTS "/service/log.transcript", begin, run);
}

// A client may call every method from inside its report, and may be released there.
TEST_F(LibraryTest, AClientMayCallTheServiceFromItsReport) {
    WriteFile(kActive, SampleDatabase("A", 1));
    LoadedService service;
    const sp<Recorder> client = new Recorder;
    client->onReport = [&service, self = client.get()] {
        if (self->Reports().size() > 1) return;
        service->stopLookup(self);
        service->startLookup(self);
        service->Lookup("7", "7");
        service->downloadDB({}, 0, 1, 3);
        service->injectDB();
        EXPECT_EQ(1, static_cast<int32_t>(service->getDBVersion()));
        EXPECT_EQ(1, static_cast<int32_t>(service->getServerStatus()));
        platform::EndOwnerOf(self);
        service->startLookup(self);
    };
    service->startLookup(client);
    service->Lookup("1", "2");
    EXPECT_TRUE(client->WaitFor(2));
}

// Clients register and die inside the link and unlink calls that the service makes into another
// one. The outcome must be that of the same registrations and deaths one after the other.
TEST_F(LibraryTest, RegistrationsAndDeathsInsideEachOtherTakeTurns) {
    using Recipient = android::hardware::hidl_death_recipient;
    struct Client : Recorder {
        Return<bool> linkToDeath(const sp<Recipient>& recipient, uint64_t cookie) override {
            std::exchange(mBeforeLink, [] {})();
            return Recorder::linkToDeath(recipient, cookie);
        }
        Return<bool> unlinkToDeath(const sp<Recipient>& recipient) override {
            std::exchange(mBeforeUnlink, [] {})();
            return Recorder::unlinkToDeath(recipient);
        }
        std::function<void()> mBeforeLink = [] {};
        std::function<void()> mBeforeUnlink = [] {};
    };
    WriteFile(kActive, SampleDatabase("A", 1));
    LoadedService service;
    const sp<Client> a = new Client;
    const sp<Client> b = new Client;
    const std::string lat = {"1\0!", 3};  // Texts come back unchanged, zeros included.
    const auto isServed = [&](const sp<Client>& client) {
        const size_t before = client->Reports().size();
        mLog.Take();
        service->Lookup(lat, "2");
        EXPECT_TRUE(mLog.WaitFor("start to call back from hidl"));
        service->injectDB();  // Refused. The log says so after the report, if there is one.
        EXPECT_TRUE(mLog.WaitFor("clear the data  : 0 "));
        const std::vector<ClientReport> reports = client->Reports();
        if (reports.size() == before) return false;
        EXPECT_EQ((ClientReport{lat, "2", "A"}), reports.back());
        return true;
    };
    const auto isServedAfterItsDeath = [&](const sp<Client>& client) {
        platform::EndOwnerOf(client);
        return isServed(client);
    };
    // The database is not open yet when a lookup comes from inside the first link call.
    a->mBeforeLink = [&] { service->Lookup("1", "2"); };
    service->startLookup(a);
    ASSERT_TRUE(a->WaitFor(1));
    EXPECT_EQ("error:Server is not supportted", a->Reports()[0].tzId);
    // B registers while A's death is handled. B is served, and the service learns of B's death.
    a->mBeforeUnlink = [&] { service->startLookup(b); };
    platform::EndOwnerOf(a);
    EXPECT_TRUE(isServed(b));
    EXPECT_FALSE(isServedAfterItsDeath(b));
    // A registers again while it is unlinked, and is linked again.
    service->startLookup(a);
    a->mBeforeUnlink = [&] { service->startLookup(a); };
    EXPECT_TRUE(isServedAfterItsDeath(a));
    EXPECT_FALSE(isServedAfterItsDeath(a));
    // An exception that a client throws from its unlink call changes nothing.
    service->startLookup(a);
    a->mBeforeUnlink = [] { throw std::runtime_error("a client's trouble"); };
    EXPECT_FALSE(isServedAfterItsDeath(a));
    // A's death is handled before B is linked: the service forgets B as well. It must not learn of
    // B's own death, which would make it forget A, which is back by then.
    service->startLookup(a);
    b->mBeforeLink = [&] { platform::EndOwnerOf(a); };
    service->startLookup(b);
    EXPECT_FALSE(isServed(b));
    service->startLookup(a);
    platform::EndOwnerOf(b);
    EXPECT_TRUE(isServed(a));
    // The same, and B registers again while it is unlinked: it is served, and its death is known.
    b->mBeforeLink = [&] { platform::EndOwnerOf(a); };
    b->mBeforeUnlink = [&] { service->startLookup(b); };
    service->startLookup(b);
    EXPECT_TRUE(isServed(b));
    EXPECT_FALSE(isServedAfterItsDeath(b));
}

// While the library is unloaded, a client that is still in its report cannot register.
TEST_F(LibraryTest, NobodyRegistersWhileItIsUnloaded) {
    LoadedService service;
    const sp<Recorder> client = new Recorder;
    client->onReport = [&] {
        // The test, the service object, the worker and this call hold the client. The front does
        // until it is closed.
        while (client->getStrongCount() > 4)
            std::this_thread::yield();
        service->startLookup(client);
    };
    service->startLookup(client);
    service->Lookup("1", "2");
    service.Unload();
    EXPECT_EQ(2, client->getStrongCount());  // The test's and the service object's.
}

// A child process that is the first to use the service gets all its answers before it ends. A
// process that is forked after that has no worker thread, and ends all the same.
TEST_F(LibraryTest, ForkedProcessesEnd) {
    WriteFile(kActive, SampleDatabase("A", 1));
    ASSERT_NE(nullptr, dlopen(OFFLINETZ_LOCAL_LIBRARY, RTLD_NOW | RTLD_LOCAL));
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const auto waitFor = [](pid_t child) {
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    };
    const pid_t user = fork();
    if (user == 0) {
        alarm(60);
        LoadedService service;
        const sp<Recorder> client = new Recorder;
        client->onReport = [&] { EXPECT_EQ(1, write(ends[1], "r", 1)); };
        service->startLookup(client);
        for (int i = 0; i < 4; ++i)
            service->Lookup("1", "2");
        const pid_t idler = fork();
        std::exit(idler == 0 ? 0 : waitFor(idler));
    }
    EXPECT_EQ(0, waitFor(user));
    close(ends[1]);
    char reports[8];
    EXPECT_EQ(4, read(ends[0], reports, sizeof reports));
    close(ends[0]);
}

// A thread calls the service while the process ends, and so does an exit handler that was
// registered before the library was loaded.
TEST(LibraryDeathTest, IsSafeToCallWhileTheProcessEnds) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    // The process may end before a thread that reported a death is joined.
    setenv("TSAN_OPTIONS", "report_thread_leaks=0", 1);
    static LoadedService* service;
    static const auto callEverything = [] {
        LoadedService& loaded = *service;
        const sp<Recorder> client = new Recorder;
        loaded->startLookup(client);
        loaded->Lookup("1", "2");
        loaded->downloadDB({1, 2}, 2, 2, 1);
        loaded->injectDB();
        loaded->getDBVersion();
        loaded->getServerStatus();
        loaded->stopLookup(client);
        platform::EndOwnerOf(client);
    };
    EXPECT_EXIT(
            {
                std::atexit([] {
                    for (int i = 0; i < 100; ++i)
                        callEverything();
                });
                service = new LoadedService;
                std::thread([] {
                    for (;;)
                        callEverything();
                }).detach();
                callEverything();
                std::exit(7);
            },
            testing::ExitedWithCode(7), "");
}

}  // namespace
