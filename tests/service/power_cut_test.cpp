// Power is cut at any moment of restores, downloads and injections: after each operation on a file,
// the test makes every state in which the disk may be left, and starts the service on it.
#include <WorkerThread.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <set>

#include "log_capture.h"
#include "service_steps.h"
#include "system_calls.h"

using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;

namespace {

using State = std::pair<MaybeFile, MaybeFile>;  // The active file and the backup.

// What the disk may hold: of each file the version that was synchronised last and each later one,
// of each directory entry the one that was synchronised last and the current one.
class Disk {
  public:
    // Takes the files as they are now. They are synchronised, except that the disk still holds
    // `active` in place of the active file.
    explicit Disk(const MaybeFile& active) {
        Look();
        for (auto& [inode, versions] : mVersions)
            versions.erase(versions.begin());
        mSynchronised = mEntries;
        if (!active) {
            mSynchronised.erase(kActive);
        } else if (*active != ReadFile(kActive)) {
            std::vector<Bytes>& versions = mVersions[mEntries[kActive]];
            versions.insert(versions.begin(), *active);
        }
    }

    // Records what an operation has changed.
    void Look() {
        mEntries.clear();
        for (const char* path : {kActive, kBackup}) {
            if (!std::filesystem::exists(path)) continue;
            mEntries[path] = InodeOf(path);
            std::vector<Bytes>& versions = mVersions[mEntries[path]];
            if (versions.empty()) versions.emplace_back();
            Bytes now = ReadFile(path);
            if (versions.back() != now) versions.push_back(std::move(now));
        }
    }

    void Synchronise(const std::string& path) {
        if (std::filesystem::is_directory(path)) {
            mSynchronised = mEntries;
        } else {
            std::vector<Bytes>& versions = mVersions[InodeOf(path)];
            versions.erase(versions.begin(), versions.end() - 1);
        }
    }

    std::set<State> States() const {
        std::set<State> states;
        for (const MaybeFile& active : FilesAt(kActive)) {
            for (const MaybeFile& backup : FilesAt(kBackup))
                states.insert({active, backup});
        }
        return states;
    }

  private:
    using Entries = std::map<std::string, ino_t>;

    static ino_t InodeOf(const std::string& path) {
        struct stat status = {};
        stat(path.c_str(), &status);
        return status.st_ino;
    }

    std::set<MaybeFile> FilesAt(const std::string& path) const {
        std::set<MaybeFile> files;
        for (const Entries& entries : {mSynchronised, mEntries}) {
            const auto entry = entries.find(path);
            if (entry == entries.end()) {
                files.insert(std::nullopt);
                continue;
            }
            const std::vector<Bytes>& versions = mVersions.at(entry->second);
            files.insert(versions.begin(), versions.end());
            if (versions.size() == 1) continue;
            // Torn: the first or the last half of the last version, over nothing, over zeros or
            // over the synchronised version.
            const Bytes& last = versions.back();
            const auto half = static_cast<std::ptrdiff_t>(last.size() / 2);
            files.insert(Bytes(last.begin(), last.begin() + half));
            for (Bytes front : {Bytes(), versions.front()}) {
                front.resize(std::max(front.size(), last.size()));
                Bytes back = front;
                std::copy(last.begin(), last.begin() + half, front.begin());
                std::copy(last.begin() + half, last.end(), back.begin() + half);
                files.insert({front, back});
            }
        }
        return files;
    }

    Entries mEntries;
    Entries mSynchronised;
    std::map<ino_t, std::vector<Bytes>> mVersions;
};

struct Case {
    const char* name;
    const char* active;  // The files at the start, by name.
    const char* backup;
    const char* onDisk;     // What the disk holds as the active file.
    const char* installed;  // The names of the files that are downloaded and injected.
    calls::Kind failing;    // The n-th call of this kind fails.
    int n;
    std::set<std::string> losses;  // The steps in which the database may be lost.
};

const Case kCases[] = {
        {"installations", "a", "a", "a", "bc", calls::kKinds, 0, {}},
        {"no backup", "a", "-", "a", "b", calls::kKinds, 0, {}},
        {"restore", "damaged", "a", "damaged", "b", calls::kKinds, 0, {}},
        {"restore of none", "-", "a", "-", "b", calls::kKinds, 0, {}},
        // A process was killed before it synchronised, or the device was set up like that.
        {"not synchronised", "a", "a", "damaged", "b", calls::kKinds, 0, {}},
        {"entry not synchronised", "a", "a", "-", "b", calls::kKinds, 0, {}},
        {"restore fails to", "damaged", "a", "damaged", "b", calls::kSynchronise, 1, {}},
        // A backup that could not be written whole is installed all the same.
        {"full disk", "a", "a", "a", "b", calls::kWrite, 1, {"injection"}},
        {"backup fails to", "a", "a", "a", "b", calls::kSynchronise, 3, {"injection"}},
};

TEST(PowerCut, LeavesTheOldOrTheNewDatabase) {
    const ServiceDirectory directory;
    LogCapture log;
    ServiceSteps steps(9000);
    steps.files["damaged"].resize(8000);
    // The service's answer when it starts on a state.
    const auto answerOn = [&](const State& state) {
        const calls::ScopedBypass own;
        PutFile(kActive, state.first);
        PutFile(kBackup, state.second);
        WorkerThread worker("OfflinetimezoneThread");
        const sp<Recorder> client = new Recorder;
        worker.registerCb(client);
        worker.PostInitMsg(new MsgData);
        worker.PostMsg(new MsgData{"1", "2", {}, 0, 0});
        worker.CreateThread();
        worker.ExitThread();
        log.Take();
        return client->Reports().at(0).tzId;
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        steps.Run({"files", c.active, c.backup});
        Disk disk(steps.FileNamed(c.onDisk));
        // Each state, the answers that are right after it, and the step that left it.
        std::set<std::tuple<State, std::string, std::string>> left;
        std::string allowed = "a";
        std::string step;
        const auto keep = [&] {
            for (const State& state : disk.States())
                left.insert({state, allowed, step});
        };
        calls::SetObserver([&](calls::Kind kind, const std::string& path) {
            disk.Look();
            if (kind == calls::kSynchronise) disk.Synchronise(path);
            keep();
        });
        calls::LetFail(c.failing, c.n);
        {
            WorkerThread worker("OfflinetimezoneThread");
            const auto handle = [&](const char* name, void (WorkerThread::*post)(const MsgData*),
                                    const MsgData& data = {}) {
                step = name;
                (worker.*post)(new MsgData(data));
                worker.CreateThread();
                worker.ExitThread();
            };
            handle("start", &WorkerThread::PostInitMsg);
            for (const char name : std::string(c.installed)) {
                const Bytes& sent = steps.files[{name}];
                const auto size = static_cast<uint32_t>(sent.size());
                allowed += name;
                const auto post = &WorkerThread::PostDownloadMsg;
                handle("download", post, {"", "", sent, DOWNLOAD_START, 0});
                handle("download", post, {"", "", {}, DOWNLOAD_END, size});
                handle("injection", &WorkerThread::PostInjectMsg);
                if (worker.getServerStatus() != SERVER_STATUS_RUNNING) continue;
                allowed = name;  // A client has seen the new database and expects it from now on.
                keep();
            }
            EXPECT_EQ(c.n > 0, calls::HasFailed());
        }
        calls::SetObserver(nullptr);
        calls::LetFail(calls::kKinds, 0);
        std::set<std::string> losses;
        for (const auto& [state, answers, when] : left) {
            const std::string answer = answerOn(state);
            if (answer.size() != 1 || answers.find(answer) == std::string::npos)
                losses.insert(when);
        }
        EXPECT_EQ(c.losses, losses);
        std::printf("%s: %zu states\n", c.name, left.size());
    }
}

}  // namespace
