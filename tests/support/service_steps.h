// What the tests of the service share: its directory and files, sample databases by name, and the
// steps of a client, written as words.
#pragma once

#include <platform/death_registry.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "raw_database.h"
#include "recorder.h"
#include "temporary_directory.h"

// The two database files of the tests' own build of the service.
#define ACTIVE "offlinetz/lastcombinedTimezone.bin"
#define BACKUP "offlinetz/lastcombinedTimezonebackup.bin"
inline constexpr char kActive[] = ACTIVE;
inline constexpr char kBackup[] = BACKUP;

// A temporary working directory in which the service may create its files.
struct ServiceDirectory : TemporaryDirectory {
    ServiceDirectory() { std::filesystem::create_directory("offlinetz"); }
};

using MaybeFile = std::optional<Bytes>;  // Null: no file.

// Replaces a file by a new one: a process that has the old one open or mapped keeps that.
inline void PutFile(const std::string& path, const MaybeFile& file) {
    std::filesystem::remove(path);
    if (file) WriteFile(path, *file);
}

// Downloads a database in chunks. The service goes by the status of a chunk, not by its size.
inline void Send(IOfflinetimezone* service, const Bytes& file, size_t chunkSize) {
    uint32_t status = 1;
    for (size_t i = 0; i < file.size(); i += chunkSize) {
        const auto begin = file.begin() + static_cast<long>(i);
        const auto end = file.begin() + static_cast<long>(std::min(i + chunkSize, file.size()));
        service->downloadDB(Bytes(begin, end), 0, 0, status);
        status = 2;
    }
    service->downloadDB({}, 0, static_cast<uint32_t>(file.size()), 3);
}

using Words = std::vector<std::string>;

inline Words SplitWords(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

struct ServiceSteps {
    // Good databases a, b and c, which answer with their own names, and a damaged one. Those of a
    // and c have at least `size` bytes, the others fewer.
    explicit ServiceSteps(size_t size) {
        for (const char* name : {"a", "b", "c"})
            files[name] = SampleDatabase(name, static_cast<uint8_t>(name[0] - 'a' + 1),
                                         name[0] == 'b' ? size * 3 / 4 : size);
        files["damaged"] = files["b"];
        files["damaged"][9] ^= 4;
    }

    MaybeFile FileNamed(const std::string& name) const {
        return name == "-" ? MaybeFile() : files.at(name);
    }

    // Does one step; false if there is no such step.
    bool Run(const Words& words) {
        const auto number = [&](size_t i) {
            return static_cast<uint32_t>(std::stoul(words.at(i)));
        };
        const std::string& step = words[0];
        if (step == "files") {  // The active file and the backup, by name.
            PutFile(kActive, FileNamed(words.at(1)));
            PutFile(kBackup, FileNamed(words.at(2)));
        } else if (step == "start") {
            service->startLookup(client);
        } else if (step == "lookup") {
            service->Lookup(words.at(1), words.at(2));
        } else if (step == "wait") {  // For so many reports.
            return client->WaitFor(number(1));
        } else if (step == "die") {
            platform::EndOwnerOf(client);
        } else if (step == "send") {
            const Bytes& file = files.at(words.at(1));
            Send(service, file, file.size() / 2);
        } else if (step == "chunk") {  // A file's name, from, to, size, total size, status.
            const auto file = files.at(words.at(1)).begin();
            service->downloadDB(Bytes(file + number(2), file + number(3)), number(4), number(5),
                                number(6));
        } else if (step == "inject") {
            service->injectDB();
        } else {
            return false;
        }
        return true;
    }

    std::map<std::string, Bytes> files;
    IOfflinetimezone* service = nullptr;
    sp<Recorder> client;
};
