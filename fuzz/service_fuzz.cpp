// Clients' calls in any order against a model of the service. The model predicts the status, the
// version, the files, the reports of each client, and who holds which client.
#include <platform/log.h>

#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "choices.h"
#include "compare_readers.h"
#include "linked_service.h"
#include "service_steps.h"

namespace {

constexpr size_t kClients = 4;
constexpr size_t kNobody = kClients;

// A client that behaves, throws, ends its thread, or is out of reach, by its number.
struct Client : Recorder {
    Return<void> timeZoneIdReport(const hidl_string& lat, const hidl_string& lon,
                                  const hidl_string& tzId) override {
        Recorder::timeZoneIdReport(lat, lon, tzId);
        if (number == 1) throw std::runtime_error("a client's trouble");
        if (number == 2) pthread_exit(nullptr);
        return android::hardware::Status::fromStatusT(number == 3 ? android::DEAD_OBJECT
                                                                  : android::OK);
    }
    size_t number = 0;
    bool isLinked = false;  // The service is told of its death.
    std::vector<ClientReport> expected;
};

MaybeFile FileAt(const char* path) {
    return std::filesystem::exists(path) ? MaybeFile(ReadFile(path)) : std::nullopt;
}

bool IsGood(const MaybeFile& file) {
    return file && file->size() > 20 &&
           WithTrailer(Bytes(file->begin(), file->end() - 20)) == *file;
}

class Run {
  public:
    Run() {
        static const ServiceDirectory directory;
        platform::DropLog();
        Require(Offlinetimezone::getInstance() == mService, "the one shared object");
        Require(!mService->startLookup(nullptr), "what startLookup gives for no client");
        PutFile(kActive, mActive);
        PutFile(kBackup, mBackup);
        for (size_t i = 0; i < kClients; ++i) {
            mClients[i] = new Client;
            mClients[i]->number = i;
        }
        lookupThread.CreateThread();
    }

    // Leaves the service as it was after it was loaded.
    ~Run() {
        Check();
        for (const sp<Client>& client : mClients) {
            Require(client->Reports() == client->expected, "the reports");
            mService->stopLookup(client);
        }
        RestartWorker();
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
                                        {}};
        static const char* const texts[] = {"1", "2.5e0x", "-40", "", "abc", "1e39", "91", "nan"};
        const auto text = [&] {
            std::string own;  // Any bytes, but mostly characters of numbers.
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
                MaybeFile* const changed = who < 2 ? &mActive : &mBackup;
                *changed = c->OneIn(4) ? std::nullopt : MaybeFile(file);
                return PutFile(who < 2 ? kActive : kBackup, *changed);
            }
            case 5:  // Mostly a whole download.
                Download({sample.begin(), sample.begin() + some}, 0, DOWNLOAD_START);
                Download({sample.begin() + some, sample.end()}, 0, DOWNLOAD_CONTINUE);
                Download({}, static_cast<uint32_t>(sample.size()) + c->OneIn(8), DOWNLOAD_END);
                return Inject();
            case 6:  // A part of one.
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
        Require(FileAt(kActive) == mActive && FileAt(kBackup) == mBackup, "the files");
        for (const sp<Client>& client : mClients) {
            const size_t i = client->number;
            const int holders = (mStored == i) + (mLatest == i) + (mReported == i);
            Require(client->getStrongCount() == 1 + holders, "who holds a client");
        }
    }

    void Start(size_t who) {
        Drain();  // Earlier lookups are answered to the client that was registered then.
        mIsBusy = true;
        Require(mService->startLookup(mClients[who]), "what startLookup gives");
        mStored = mLatest = who;
        if (mReported == kNobody) mReported = who;
        mClients[who]->isLinked = true;
        if (mStatus != SERVER_STATUS_RUNNING) VerifyAndOpen();
    }

    // The service then forgets the client that gets the reports, and the latest client and its
    // link.
    void Die(size_t who) {
        Drain();
        platform::EndOwnerOf(mClients[who]);
        if (!std::exchange(mClients[who]->isLinked, false)) return;
        mReported = kNobody;
        const size_t latest = std::exchange(mLatest, kNobody);
        if (latest != kNobody) mClients[latest]->isLinked = false;
    }

    void VerifyAndOpen() {
        if (!IsGood(mActive) && mBackup) mActive = mBackup;
        mIsOpen = IsGood(mActive);
        mStatus = mIsOpen ? SERVER_STATUS_RUNNING : SERVER_STATUS_FAILED;
        if (mIsOpen) mDatabase = OpenBytes(*mActive);
        if (mDatabase != nullptr) mReference.emplace(*mActive);
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
        mBackup = mDownload;
        mIsComplete = true;
    }

    void Inject() {
        mIsBusy = true;
        Require(mService->injectDB(), "what injectDB gives");
        if (!mIsComplete) return Discard();
        mDatabase.reset();
        mIsOpen = false;
        mStatus = SERVER_STATUS_FAILED;
        if (!mBackup) return;
        mActive = mBackup;
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

    Offlinetimezone* const mService = Offlinetimezone::getInstance();
    sp<Client> mClients[kClients];
    bool mIsBusy = false;  // Something was posted since the last Drain.
    MaybeFile mActive;
    MaybeFile mBackup;
    int32_t mStatus = SERVER_STATUS_IDLE;
    bool mIsOpen = false;
    DatabasePtr mDatabase;  // Also null if the file verifies but cannot be read.
    std::optional<oracle::ReferenceReader> mReference;  // Of mDatabase.
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
