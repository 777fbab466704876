// The library, loaded: every flow that a client can take, with its answers and its log.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <platform/death_registry.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <regex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "loaded_service.h"
#include "log_capture.h"
#include "sample_databases.h"
#include "service_files.h"
#include "temporary_directory.h"
#include "transcript.h"

using android::sp;
using android::hardware::hidl_string;
namespace fs = std::filesystem;

namespace {

class FlowTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directory("offlinetz"); }

    TemporaryDirectory mDirectory;
    LogCapture mLog;
};

// Zones A and B, which overlap, one of an empty name, and one whose record cannot be read.
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

// Every flow of flows.transcript, each on a library loaded anew. The front's lines follow the step
// that made them. The worker's come in its own time: "unload" lets it finish and gives them all,
// then the reports that the client got.
TEST_F(FlowTest, RunsAsTheTranscriptSays) {
    std::map<std::string, Bytes> files = {{"a", SampleDatabase("\"Zone/A\"", 1)},
                                          {"b", SampleDatabase("\"Zone/B\"", 2)},
                                          {"zones", OverlappingZones()},
                                          {"junk", WithTrailer(Bytes(40, 'x'))},
                                          {"short", Bytes(20, 'x')},
                                          {"empty", {}}};
    files["damaged"] = files["b"];
    files["damaged"][9] ^= 4;
    std::unique_ptr<LoadedService> service;
    sp<Recorder> client;
    std::vector<LogLine> workerLines;

    // The lines since the last call that the front wrote, with what differs from run to run
    // made alike; the others are kept for the end.
    const auto takeFront = [&] {
        static const std::regex kTime("pid : [0-9]+ starttime: [0-9]+!");
        static const std::regex kAddress("who: 0x[0-9a-f]+");
        Words lines;
        for (const LogLine& line : mLog.Take()) {
            if (line.tag != "OfflinetimezoneService") {
                workerLines.push_back(line);
                continue;
            }
            const std::string text =
                    std::regex_replace(line.message, kTime, "pid : P starttime: T!");
            lines.push_back(std::to_string(line.priority) +
                            Bars(std::regex_replace(text, kAddress, "who: W")));
        }
        return lines;
    };
    const auto boolean = [](bool value) { return std::string(value ? "true" : "false"); };
    const auto number = [](const std::string& text) {
        return static_cast<uint32_t>(std::stoul(text));
    };
    const auto unload = [&] {
        service.reset();
        Words lines = takeFront();
        for (const LogLine& line : workerLines) {
            lines.push_back(std::to_string(line.priority) + " " + line.tag.substr(15) +
                            Bars(line.message));
        }
        workerLines.clear();
        for (const ClientReport& r : client->Reports()) {
            lines.push_back("report " + Bars(r.lat) + " " + Bars(r.lon) + " " + Bars(r.tzId));
        }
        return lines;
    };
    // Which of the sample files the two database files are.
    const auto filesAre = [&] {
        std::string names;
        for (const char* path : {kActive, kBackup}) {
            std::string found = fs::exists(path) ? " other" : " none";
            for (const auto& [name, file] : files) {
                if (fs::exists(path) && ReadFile(path) == file) found = " " + name;
            }
            names += found;
        }
        return "active and backup:" + names;
    };
    const auto run = [&](const Words& words) -> std::string {
        const std::string& step = words[0];
        LoadedService& loaded = *service;
        if (step == "start") return boolean(loaded->startLookup(client));
        if (step == "start-empty") return boolean(loaded->startLookup(nullptr));
        if (step == "stop") return boolean(loaded->stopLookup(client));
        if (step == "lookup") return boolean(loaded->Lookup(words.at(1), words.at(2)));
        if (step == "inject") return boolean(loaded->injectDB());
        if (step == "chunk") {  // A chunk of a file: name, from, to, size, total size, status.
            const Bytes& file = files.at(words.at(1));
            const Bytes part(file.begin() + number(words.at(2)),
                             file.begin() + number(words.at(3)));
            return boolean(loaded->downloadDB(part, number(words.at(4)), number(words.at(5)),
                                              number(words.at(6))));
        }
        if (step == "references") return std::to_string(client->getStrongCount());
        if (step == "die") {
            platform::EndOwnerOf(client);
            return "";
        }
        if (step == "wait") return client->WaitFor(number(words.at(1))) ? "" : "no report";
        if (step == "state") {
            return "status " + std::to_string(loaded->getServerStatus()) + ", version " +
                   std::to_string(loaded->getDBVersion());
        }
        if (step == "remove-backup") return fs::remove(kBackup) ? "" : "none";
        if (step != "put-active" && step != "put-backup") return "no such step";
        WriteFile(step == "put-active" ? kActive : kBackup, files.at(words.at(1)));
        return "";
    };
    CheckTranscript(
            OFFLINETZ_TESTS "/service/flows.transcript",
            [&](const std::string&) {
                fs::remove(kActive);
                fs::remove(kBackup);
                client = new Recorder;
                service = std::make_unique<LoadedService>(OFFLINETZ_LOCAL_LIBRARY);
            },
            [&](const std::string& step) {
                if (step == "unload") return unload();
                if (step == "files") return Words{filesAre()};
                const std::string result = run(SplitStep(step));
                Words lines = takeFront();
                if (!result.empty()) lines.push_back(result);
                return lines;
            });
}

// A client may call every method from inside its report, and may be released there.
TEST_F(FlowTest, AClientMayCallTheServiceFromItsReport) {
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1));
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
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

// A client may register inside the link and unlink calls that another one's registration and death
// make into it; what comes out is what one after the other would give.
TEST_F(FlowTest, RegistrationsAndDeathsTakeTurns) {
    struct Client : Recorder {
        android::hardware::Return<bool> linkToDeath(
                const sp<android::hardware::hidl_death_recipient>& recipient,
                uint64_t cookie) override {
            std::exchange(mBeforeLink, [] {})();
            return Recorder::linkToDeath(recipient, cookie);
        }
        android::hardware::Return<bool> unlinkToDeath(
                const sp<android::hardware::hidl_death_recipient>& recipient) override {
            std::exchange(mBeforeUnlink, [] {})();
            return Recorder::unlinkToDeath(recipient);
        }
        std::function<void()> mBeforeLink = [] {};
        std::function<void()> mBeforeUnlink = [] {};
    };
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1));
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
    const sp<Client> a = new Client;
    const sp<Client> b = new Client;
    const auto isServed = [&](const sp<Client>& client) {
        const size_t before = client->Reports().size();
        mLog.Take();
        service->Lookup(hidl_string("1\0!", 3), "2");  // Texts go as they are, zeros included.
        EXPECT_TRUE(mLog.WaitFor("start to call back from hidl", 1));
        service->injectDB();  // Refused; its line tells that the report before is done.
        EXPECT_TRUE(mLog.WaitFor("clear the data  : 0 ", 1));
        const std::vector<ClientReport> reports = client->Reports();
        if (reports.size() == before) return false;
        EXPECT_EQ((ClientReport{std::string("1\0!", 3), "2", "\"Zone/A\""}), reports.back());
        return true;
    };
    // The database is opened behind what a client asks while it is linked.
    a->mBeforeLink = [&] { service->Lookup("1", "2"); };
    service->startLookup(a);
    ASSERT_TRUE(a->WaitFor(1));
    EXPECT_EQ("error:Server is not supportted", a->Reports()[0].tzId);
    // B registers while A's death is handled: it is served, and its own death is noticed.
    a->mBeforeUnlink = [&] { service->startLookup(b); };
    platform::EndOwnerOf(a);
    EXPECT_TRUE(isServed(b));
    platform::EndOwnerOf(b);
    EXPECT_FALSE(isServed(b));
    // A itself registers again while its unlinking is under way, and keeps a link.
    service->startLookup(a);
    a->mBeforeUnlink = [&] { service->startLookup(a); };
    platform::EndOwnerOf(a);
    EXPECT_TRUE(isServed(a));
    platform::EndOwnerOf(a);
    EXPECT_FALSE(isServed(a));
    // What a client throws into its unlinking changes nothing.
    service->startLookup(a);
    a->mBeforeUnlink = [] { throw std::runtime_error("a client's trouble"); };
    platform::EndOwnerOf(a);
    EXPECT_FALSE(isServed(a));
    // A's death is handled before B is linked: B is forgotten with A, and its later end, of which
    // the service must not hear, takes nothing from A, which is back.
    service->startLookup(a);
    b->mBeforeLink = [&] { platform::EndOwnerOf(a); };
    service->startLookup(b);
    EXPECT_FALSE(isServed(b));
    service->startLookup(a);
    platform::EndOwnerOf(b);
    EXPECT_TRUE(isServed(a));
    // The same, and B registers again while it is unlinked: it is served and its death is noticed.
    b->mBeforeLink = [&] { platform::EndOwnerOf(a); };
    b->mBeforeUnlink = [&] { service->startLookup(b); };
    service->startLookup(b);
    EXPECT_TRUE(isServed(b));
    platform::EndOwnerOf(b);
    EXPECT_FALSE(isServed(b));
}

// While the library ends and a client is still in its report, nobody registers any more.
TEST_F(FlowTest, NobodyRegistersWhileItEnds) {
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
    const sp<Recorder> client = new Recorder;
    client->onReport = [&] {
        // Held by the test, the service object, the worker, this call, and the front, until it lets
        // go.
        while (client->getStrongCount() > 4)
            std::this_thread::yield();
        service->startLookup(client);
    };
    service->startLookup(client);
    service->Lookup("1", "2");
    service.Unload();
    EXPECT_EQ(2, client->getStrongCount());  // The test's and the service object's.
}

// A process that is forked off and uses the service first gets all its answers before it ends. One
// that is forked off later has no worker, and ends like any other.
TEST_F(FlowTest, ForkedProcessesEnd) {
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 1));
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
        LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
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

// Threads go on calling while the process ends, and so does an exit handler that is older than the
// library.
TEST(LibraryDeathTest, IsSafeToCallWhileTheProcessEnds) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    // The exit may come between the end of a thread that tells of a death and its joining.
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
                service = new LoadedService(OFFLINETZ_LOCAL_LIBRARY);
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
