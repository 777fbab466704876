// Clients' calls in any order against a model of the service, which predicts its status, version,
// files, the reports of each client, and who holds on to whom.
#include <Offlinetimezone.h>
#include <WorkerThread.h>
#include <platform/death_registry.h>
#include <platform/log.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <utility>

#include "choices.h"
#include "compare_readers.h"
#include "recorder.h"
#include "sample_databases.h"
#include "service_files.h"
#include "temporary_directory.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {
extern WorkerThread& lookupThread;
extern ::android::sp<IOfflinetimezoneCallback>& clientCallback;
}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;

namespace {

constexpr size_t kClients = 4;
constexpr size_t kNobody = kClients;

// A client that behaves, throws, ends its thread, or cannot be reached.
struct Client : Recorder {
    Return<void> timeZoneIdReport(const hidl_string& lat, const hidl_string& lon,
                                  const hidl_string& tzId) override {
        Recorder::timeZoneIdReport(lat, lon, tzId);
        if (number == 1) throw std::runtime_error("a client's trouble");
        if (number == 2) pthread_exit(nullptr);
        return number == 3 ? android::hardware::Status::fromStatusT(android::DEAD_OBJECT)
                           : android::hardware::Status::ok();
    }
    size_t number = 0;
    bool isLinked = false;  // The service is told of its death.
    std::vector<ClientReport> expected;
};

// A database file, and what it must hold.
struct File {
    void Set(const std::optional<Bytes>& bytes) {
        std::filesystem::remove(path);  // What is open stays as it was.
        if (bytes) WriteFile(path, *bytes);
        content = bytes;
    }
    bool IsRight() const {
        return std::filesystem::exists(path) == content.has_value() &&
               (!content || ReadFile(path) == *content);
    }
    bool IsGood() const {
        return content && content->size() > 20 &&
               WithTrailer(Bytes(content->begin(), content->end() - 20)) == *content;
    }
    const char* path;
    std::optional<Bytes> content = {};
};

class Run {
  public:
    Run() {
        static const TemporaryDirectory directory;
        static Offlinetimezone* const service = Offlinetimezone::getInstance();
        platform::DropLog();
        mService = service;
        Require(Offlinetimezone::getInstance() == service, "the one shared object");
        std::filesystem::create_directory("offlinetz");
        mActive.Set(std::nullopt);
        mBackup.Set(std::nullopt);
        for (size_t i = 0; i < kClients; ++i) {
            mClients[i] = new Client;
            mClients[i]->number = i;
        }
        lookupThread.CreateThread();
    }

    // Leaves the service as it was when it was loaded.
    ~Run() {
        Check();
        for (const sp<Client>& client : mClients) {
            Require(client->Reports() == client->expected, "the reports");
            mService->stopLookup(client);
        }
        lookupThread.~WorkerThread();
        new (&lookupThread) WorkerThread("OfflinetimezoneThread");
        clientCallback.clear();
        for (const sp<Client>& client : mClients)
            Require(client->getStrongCount() == 1, "nobody holds a client in the end");
    }

    void Step(Choices* c) {
        static const Bytes samples[] = {SampleDatabase("\"Zone/A\"", 1),
                                        SampleDatabase("\"Zone/B\"", 2),
                                        WithTrailer(Bytes(40)),
                                        Bytes(82),
                                        Bytes(20),
                                        Bytes()};
        static const char* const texts[] = {"1", "2.5e0x", "-40", "", "abc", "1e39", "91", "nan"};
        const auto text = [&] {
            std::string own;  // Anything, but mostly what numbers are made of.
            for (const uint8_t byte : c->OneIn(4) ? c->Take(c->Below(12)) : Bytes())
                own += byte < 200 ? "0123456789.-+eExinfaty, \t"[byte % 25]
                                  : static_cast<char>(byte);
            return own.empty() ? texts[c->Below(8)] : own;
        };
        const uint32_t step = c->Below(12);
        const Bytes& sample = samples[c->Below(6)];
        const auto some = static_cast<ptrdiff_t>(c->Byte() % (sample.size() + 1));
        const size_t who = c->Below(kClients);
        switch (step) {
            case 0:
                return Start(who);
            case 1:
                Require(!mService->stopLookup(mClients[who]), "what stopLookup gives");
                if (mStored == who) mStored = kNobody;
                return;
            case 2:
                return Die(who);
            case 3:
                return Check();
            case 4: {
                Drain();
                Bytes file = sample;
                if (who % 2 == 1 && some < static_cast<ptrdiff_t>(file.size()))
                    file[static_cast<size_t>(some)] ^= 1;
                return (who < 2 ? mActive : mBackup)
                        .Set(c->OneIn(4) ? std::nullopt : std::optional(file));
            }
            case 5:  // A whole download, mostly, ...
                Download({sample.begin(), sample.begin() + some}, 0, DOWNLOAD_START);
                Download({sample.begin() + some, sample.end()}, 0, DOWNLOAD_CONTINUE);
                Download({}, static_cast<uint32_t>(sample.size()) + c->OneIn(8), DOWNLOAD_END);
                return Inject();
            case 6:  // ... or part of one.
                return Download({sample.begin() + some, sample.end()},
                                c->OneIn(4) ? static_cast<uint32_t>(c->Number())
                                            : static_cast<uint32_t>(mDownload.size()),
                                c->OneIn(8) ? static_cast<uint32_t>(c->Number()) : c->Below(4));
            case 7:
                return Inject();
            default:
                const std::string lat = text();
                return Lookup(lat, text());
        }
    }

  private:
    // Lets the worker handle all that was posted.
    void Drain() {
        if (!std::exchange(mIsBusy, false)) return;
        lookupThread.ExitThread();
        lookupThread.CreateThread();
    }

    void Check() {
        Drain();
        Require(mService->getServerStatus() == mStatus, "the status");
        Require(mService->getDBVersion() == (mDatabase ? mDatabase->version : 65535),
                "the version");
        Require(mActive.IsRight() && mBackup.IsRight(), "the files");
        for (const sp<Client>& client : mClients) {
            const size_t i = client->number;
            const int holders = (mStored == i) + (mLatest == i) + (mReported == i);
            Require(client->getStrongCount() == 1 + holders, "who holds a client");
        }
    }

    void Start(size_t who) {
        Drain();  // What was asked before goes to whoever was registered before.
        mIsBusy = true;
        Require(mService->startLookup(mClients[who]), "what startLookup gives");
        mStored = mLatest = who;
        if (mReported == kNobody) mReported = who;
        mClients[who]->isLinked = true;
        if (mStatus != SERVER_STATUS_RUNNING) VerifyAndOpen();
    }

    // The service then forgets whom it reports to, and the latest client with its link.
    void Die(size_t who) {
        Drain();
        platform::EndOwnerOf(mClients[who]);
        if (!std::exchange(mClients[who]->isLinked, false)) return;
        mReported = kNobody;
        const size_t latest = std::exchange(mLatest, kNobody);
        if (latest != kNobody) mClients[latest]->isLinked = false;
    }

    void VerifyAndOpen() {
        if (!mActive.IsGood() && mBackup.content) mActive.content = mBackup.content;
        mIsOpen = mActive.IsGood();
        mStatus = mIsOpen ? SERVER_STATUS_RUNNING : SERVER_STATUS_FAILED;
        if (mIsOpen) mDatabase = OpenBytes(*mActive.content);
        if (mDatabase != nullptr) mReference.emplace(*mActive.content);
    }

    void Discard() {
        mDownload.clear();
        mIsComplete = false;
    }

    void Download(const Bytes& data, uint32_t totalSize, uint32_t status) {
        mIsBusy = true;
        Require(mService->downloadDB(data, totalSize / 2, totalSize, status), "what it gives");
        if (status == DOWNLOAD_START) Discard();
        if (status == DOWNLOAD_START || status == DOWNLOAD_CONTINUE)
            mDownload = std::move(mDownload) + data;
        if (status != DOWNLOAD_END) return;
        if (mDownload.size() != totalSize) return Discard();
        mBackup.content = mDownload;
        mIsComplete = true;
    }

    void Inject() {
        mIsBusy = true;
        Require(mService->injectDB(), "what injectDB gives");
        if (!mIsComplete) return Discard();
        mDatabase.reset();
        mIsOpen = false;
        mStatus = SERVER_STATUS_FAILED;
        if (!mBackup.content) return;
        mActive.content = mBackup.content;
        VerifyAndOpen();
    }

    void Lookup(const std::string& lat, const std::string& lon) {
        mIsBusy = true;
        Require(!mService->Lookup(hidl_string(lat), hidl_string(lon)), "what Lookup gives");
        if (mReported != kNobody)
            mClients[mReported]->expected.push_back({lat, lon, Answer(lat, lon)});
    }

    std::string Answer(const std::string& lat, const std::string& lon) const {
        if (!mIsOpen) return "error:Server is not supportted";
        std::vector<float> degrees;
        for (const char* text : {lat.c_str(), lon.c_str()}) {
            char* end;
            errno = 0;
            degrees.push_back(std::strtof(text, &end));
            if (end == text || (errno == ERANGE && std::fabs(degrees.back()) > 1.0f))
                return "\"error:error input\"";
        }
        if (mDatabase == nullptr) return "error:Server is not supportted";
        return ExpectedText(*mDatabase, *mReference, degrees[0], degrees[1]);
    }

    Offlinetimezone* mService;
    sp<Client> mClients[kClients];
    bool mIsBusy = false;  // Something was posted since the worker was last seen idle.
    File mActive = {kActive};
    File mBackup = {kBackup};
    int32_t mStatus = SERVER_STATUS_IDLE;
    bool mIsOpen = false;
    DatabasePtr mDatabase;  // Null, too, for a file that verifies and cannot be read.
    std::optional<oracle::ReferenceReader> mReference;  // Of the database.
    Bytes mDownload;
    bool mIsComplete = false;
    size_t mStored = kNobody;    // By the service object.
    size_t mLatest = kNobody;    // Who started last.
    size_t mReported = kNobody;  // Who gets the reports.
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    Run run;
    for (int steps = 0; steps < 40 && !choices.IsAtEnd(); ++steps)
        run.Step(&choices);
    return 0;
}
