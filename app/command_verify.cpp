// offlinetz verify: whether a database file is whole and readable.
#include <LookupInterface.h>
#include <host/log.h>
#include <sha1.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "database.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupInterface;

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) throw std::runtime_error(path + ": cannot be read");
    return bytes;
}

bool TrailerHolds(const std::vector<uint8_t>& bytes) {
    if (bytes.size() <= SHA1HashSize || bytes.size() > INT32_MAX) return false;
    const size_t length = bytes.size() - SHA1HashSize;
    uint8_t digest[SHA1HashSize] = {};
    return LookupInterface().sha1(bytes.data(), digest, static_cast<uint32_t>(length)) == 0 &&
           std::equal(digest, digest + SHA1HashSize, bytes.data() + length);
}

int RunVerify(const std::string& path) {
    host::SetLogReceiver([](int, const char*, const std::string&) {});
    const std::vector<uint8_t> bytes = ReadFile(path);
    if (!TrailerHolds(bytes)) {
        std::printf("%s: damaged: the digest at its end does not match its content\n",
                    path.c_str());
        return kExitFailed;
    }
    DatabasePtr database;
    try {
        database = OpenDatabase(path);
    } catch (const std::runtime_error&) {
        std::printf("%s: unusable: the digest matches, but the content is not a zone database\n",
                    path.c_str());
        return kExitFailed;
    }
    std::printf("%s: good\n", path.c_str());
    std::printf("version    %u\n", ZDgetDBVersion(database.get()));
    std::printf("table type %u\n", static_cast<unsigned>(ZDGetTableType(database.get())));
    std::printf("precision  %u\n", static_cast<unsigned>(database->precision));
    std::printf("content    %d bytes\n", ZDGetLength(database.get()));
    std::printf("notice     %s\n", ZDGetNotice(database.get()));
    return kExitOk;
}

}  // namespace

void AddVerifyCommand(CLI::App* app, int* exitCode) {
    const auto path = std::make_shared<std::string>();
    CLI::App* command = app->add_subcommand(
            "verify", "Says whether a database file is whole and its header makes sense");
    command->add_option("FILE", *path, "Database file")->required();
    command->callback([path, exitCode] { *exitCode = RunVerify(*path); });
}
