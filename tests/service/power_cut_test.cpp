// Power goes at any moment of restores, downloads and injections: after each operation on a file,
// every state is made that a disk could be left in, and the service started on it.
#include <WorkerThread.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include "log_capture.h"
#include "raw_database.h"
#include "recorder.h"
#include "sample_databases.h"
#include "service_files.h"
#include "system_calls.h"
#include "temporary_directory.h"

using android::sp;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
namespace fs = std::filesystem;

namespace {

using MaybeFile = std::optional<Bytes>;
using State = std::pair<MaybeFile, MaybeFile>;  // The active file and the backup.

void Put(const std::string& path, const MaybeFile& file) {
    fs::remove(path);
    if (file) WriteFile(path, *file);
}

// What a disk may hold: of each file the version that was synchronised last and those since, of
// each directory entry the one that was synchronised last and the one since.
class Disk {
  public:
    // Takes the files as they are, synchronised but for the active one, which the disk has as
    // `active`.
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

    // Sees what an operation has changed.
    void Look() {
        mEntries.clear();
        for (const char* path : {kActive, kBackup}) {
            struct stat status = {};
            if (stat(path, &status) != 0) continue;
            mEntries[path] = status.st_ino;
            std::vector<Bytes>& versions = mVersions[status.st_ino];
            if (versions.empty()) versions.emplace_back();
            Bytes now = ReadFile(path);
            if (versions.back() != now) versions.push_back(std::move(now));
        }
    }

    void Synchronise(const std::string& path) {
        if (fs::is_directory(path)) {
            mSynchronised = mEntries;
        } else {
            struct stat status = {};
            stat(path.c_str(), &status);
            std::vector<Bytes>& versions = mVersions[status.st_ino];
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
            // Torn: a part of the last version, in front or behind, over nothing, over zeros or
            // over what was there.
            const Bytes& last = versions.back();
            const auto half = static_cast<std::ptrdiff_t>(last.size() / 2);
            if (versions.size() == 1) continue;
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
    const char* active;  // The files at the start; "-" is none.
    const char* backup;
    const char* onDisk;     // What of the active one is synchronised.
    const char* installed;  // The names of the files that are sent and injected.
    calls::Kind failing;    // And the n-th of the kind fails.
    int n;
    std::set<std::string> losses;  // The steps in which the database may be lost.
};

const Case kCases[] = {
        {"installations", "a", "a", "a", "bc", calls::kKinds, 0, {}},
        {"no backup", "a", "-", "a", "b", calls::kKinds, 0, {}},
        {"restore", "damaged", "a", "damaged", "b", calls::kKinds, 0, {}},
        {"restore of none", "-", "a", "-", "b", calls::kKinds, 0, {}},
        // By a process that was killed before it came to that, or by who set the device up.
        {"not synchronised", "a", "a", "damaged", "b", calls::kKinds, 0, {}},
        {"entry not synchronised", "a", "a", "-", "b", calls::kKinds, 0, {}},
        {"restore fails to", "damaged", "a", "damaged", "b", calls::kSynchronise, 1, {}},
        // What could not be written whole to the backup is installed all the same.
        {"full disk", "a", "a", "a", "b", calls::kWrite, 1, {"injection"}},
        {"backup fails to", "a", "a", "a", "b", calls::kSynchronise, 3, {"injection"}},
};

TEST(PowerCut, LeavesTheOldOrTheNewDatabase) {
    const TemporaryDirectory directory;
    fs::create_directory("offlinetz");
    LogCapture log;
    std::map<std::string, Bytes> files;
    for (const char* name : {"a", "b", "c"})
        files[name] = SampleDatabase(name, 1, name[0] == 'b' ? 7000 : 9000);
    files["damaged"] = files["a"];
    files["damaged"][100] ^= 1;
    files["damaged"].resize(8000);
    const auto file = [&](const std::string& name) {
        return name == "-" ? MaybeFile() : MaybeFile(files[name]);
    };
    // What the service answers when it starts on a state.
    const auto answerOn = [&](const State& state) {
        const calls::ScopedBypass own;
        Put(kActive, state.first);
        Put(kBackup, state.second);
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
        Put(kActive, file(c.active));
        Put(kBackup, file(c.backup));
        Disk disk(file(c.onDisk));
        // Each state, with the answers that will do after it, and the step that left it.
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
                const Bytes& sent = files[{name}];
                const auto size = static_cast<uint32_t>(sent.size());
                allowed += name;
                const auto post = &WorkerThread::PostDownloadMsg;
                handle("download", post, {"", "", sent, DOWNLOAD_START, 0});
                handle("download", post, {"", "", {}, DOWNLOAD_END, size});
                handle("injection", &WorkerThread::PostInjectMsg);
                if (worker.getServerStatus() != SERVER_STATUS_RUNNING) continue;
                allowed = name;  // Who has seen that has no use for the old one.
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
