// The whole service as a device has it: the default library at its default paths, loaded and
// used by a client that knows the interface alone.
#include <compile.h>
#include <gtest/gtest.h>
#include <host/death_registry.h>

#include <cerrno>
#include <cmath>
#include <filesystem>

#include "loaded_service.h"
#include "log_capture.h"

using android::sp;
namespace fs = std::filesystem;

namespace {

const char kDirectory[] = "/data/offlinetz";

// The device's directory, if this machine has none of its own and lets it be made. A mark in it
// tells one that a test left behind.
class DeviceDirectory {
  public:
    DeviceDirectory() {
        std::error_code error;
        const fs::path mark = fs::path(kDirectory) / "made-by-a-test";
        if (fs::exists(mark, error)) fs::remove_all(kDirectory, error);
        if (fs::exists(kDirectory, error) || error) return;
        mMadeParent = !fs::exists("/data");
        fs::create_directories(kDirectory, error);
        mMade = !error;
        if (mMade) WriteFile(mark, {});
    }
    ~DeviceDirectory() {
        std::error_code ignored;
        if (mMade) fs::remove_all(kDirectory, ignored);
        if (mMadeParent) fs::remove("/data", ignored);  // If it is empty.
    }
    bool IsMade() const { return mMade; }

  private:
    bool mMade = false;
    bool mMadeParent = false;
};

// A database that differs from the world around Paris: a ragged island of a zone of its own.
Bytes SecondDatabase(uint8_t version) {
    offlinetz::DatabaseContent content;
    content.version = version;
    content.precision = 21;
    content.fieldNames = {"TimezoneId"};
    content.notice = "second";
    content.zones = {"\"Second/Paris\""};
    const offlinetz::GridPoint center = offlinetz::Grid(21).FromDegrees(48.8566, 2.3522);
    offlinetz::GridRing ring;
    for (int i = 0; i < 3000; ++i) {
        const double angle = -6.283185307 * i / 3000;
        const double radius = 20000.0 + 300.0 * (i % 7);
        ring.push_back({center.lat + static_cast<int32_t>(radius * std::sin(angle)),
                        center.lon + static_cast<int32_t>(radius * std::cos(angle))});
    }
    content.entries = {{0, offlinetz::BoxOf(ring), ring}};
    offlinetz::SectionSizes sizes;
    return offlinetz::EncodeDatabase(content, &sizes);
}

TEST(EndToEnd, ServesTheWorldAndTakesANewDatabase) {
    const DeviceDirectory device;
    if (!device.IsMade()) GTEST_SKIP() << kDirectory << " exists or cannot be made";
    const fs::path directory = kDirectory;
    const Bytes world = ReadFile(OFFLINETZ_WORLD_DATABASE);
    WriteFile(directory / "lastcombinedTimezone.bin", world);
    LogCapture log;

    LoadedService service(OFFLINETZ_LIBRARY);
    const sp<Recorder> client = new Recorder;
    ASSERT_TRUE(service->startLookup(client));
    const auto ask = [&](const char* lat, const char* lon) {
        const size_t before = client->Reports().size();
        service->Lookup(lat, lon);
        return client->WaitFor(before + 1) ? client->Reports()[before].tzId : "no answer";
    };
    EXPECT_EQ("\"Europe/Paris\"", ask("48.8566", "2.3522"));
    EXPECT_EQ("\"America/New_York\"", ask("40.7128", "-74.0060"));
    EXPECT_EQ(1, static_cast<int32_t>(service->getDBVersion()));
    uint8_t version = 10;
    for (const size_t chunk : {size_t{1}, size_t{4093}, SIZE_MAX / 2}) {
        const Bytes second = SecondDatabase(++version);
        ASSERT_GT(second.size(), 4093u);
        service.Send(second, chunk);
        service->injectDB();
        EXPECT_EQ("\"Second/Paris\"", ask("48.8566", "2.3522"));
        EXPECT_EQ("\"Etc/GMT+5\"", ask("40.7128", "-74.0060"));
        EXPECT_EQ(1, static_cast<int32_t>(service->getServerStatus()));
        EXPECT_EQ(version, static_cast<int32_t>(service->getDBVersion()));
        EXPECT_EQ(second, ReadFile(directory / "lastcombinedTimezone.bin"));
        log.Take();
    }
    // And the world again.
    service.Send(world, 1 << 16);
    service->injectDB();
    EXPECT_EQ("\"Europe/Paris\"", ask("48.8566", "2.3522"));
    EXPECT_EQ(1, static_cast<int32_t>(service->getDBVersion()));

    // The library stays when it is unloaded: its objects go on serving, and hear of deaths.
    service.Unload();
    host::EndOwnerOf(client);
    // Left are this reference and the service object's, once the worker is out of its last report.
    for (int i = 0; i < 60000 && client->getStrongCount() > 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(2, client->getStrongCount());
    ASSERT_TRUE(service->startLookup(client));
    EXPECT_EQ("\"Europe/Paris\"", ask("48.8566", "2.3522"));
}

}  // namespace
