// The whole service as a device has it, the default library at its default paths, used by the
// client of docs/client.md, compiled as it stands there.
#include <client_of_the_documents.h>
#include <gtest/gtest.h>
#include <host/death_registry.h>

#include <condition_variable>
#include <filesystem>

#include "loaded_service.h"
#include "sample_databases.h"
#include "temporary_directory.h"

using android::sp;
using timezone_client::Client;
using Zones = std::vector<std::string>;
namespace fs = std::filesystem;

namespace {

// The device's directory, if this machine has none of its own and lets it be made: a mark in it
// tells one that a test left behind. Else one below the working directory.
class Directory {
  public:
    Directory() {
        std::error_code error;
        if (fs::exists(mPath / "made-by-a-test", error)) fs::remove_all(mPath, error);
        if (!fs::exists(mPath, error) && !error) fs::create_directories(mPath, error);
        mIsDevices = !error && fs::is_empty(mPath);
        if (!mIsDevices) fs::create_directory(mPath = "offlinetz");
        WriteFile(mPath / "made-by-a-test", {});
    }
    ~Directory() {
        std::error_code ignored;
        fs::remove_all(mPath, ignored);
        if (mIsDevices) fs::remove(mPath.parent_path(), ignored);  // If it is empty.
    }
    fs::path Path() const { return mPath; }
    bool IsDevices() const { return mIsDevices; }
    const char* Library() const { return mIsDevices ? OFFLINETZ_LIBRARY : OFFLINETZ_LOCAL_LIBRARY; }

  private:
    const TemporaryDirectory mTemporary;
    fs::path mPath = "/data/offlinetz";
    bool mIsDevices;
};

class Answers {
  public:
    void Take(const std::string& lat, const std::string& lon, const Zones& zones) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mAsked = lat + " " + lon;
        mZones = zones;
        mChanged.notify_all();
    }

    // Asks, and waits for the answer.
    Zones Of(const sp<Client>& client, const std::string& lat, const std::string& lon) {
        std::unique_lock<std::mutex> lock(mMutex);
        mAsked.clear();
        if (!client->Ask(lat, lon)) return {"there is no service"};
        const bool came = mChanged.wait_for(lock, std::chrono::minutes(1),
                                            [&] { return mAsked == lat + " " + lon; });
        return came ? mZones : Zones{"no answer"};
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::string mAsked;
    Zones mZones;
};

TEST(EndToEnd, TheClientOfTheDocumentsIsServed) {
    const Directory directory;
    const fs::path active = directory.Path() / "lastcombinedTimezone.bin";
    fs::copy(OFFLINETZ_WORLD_DATABASE, active);
    LoadedService service(directory.Library());
    Answers answers;
    sp<LoadedService::Interface> latest;
    const sp<Client> client = new Client(
            [&] {
                latest = service.Fetch();
                return latest;
            },
            [&](const std::string& lat, const std::string& lon, const Zones& zones) {
                answers.Take(lat, lon, zones);
            });
    EXPECT_FALSE(client->Ask("48.85", "2.35"));
    ASSERT_TRUE(client->Connect());
    const Zones paris = {"Europe/Paris"};
    EXPECT_EQ(answers.Of(client, "48.85", "2.35"), paris);
    EXPECT_EQ(answers.Of(client, "43.8256", "87.6168"), (Zones{"Asia/Shanghai", "Asia/Urumqi"}));
    EXPECT_EQ(answers.Of(client, "30", "-40"), Zones{"Etc/GMT+3"});
    EXPECT_EQ(answers.Of(client, "91", "0"), Zones{});

    const DatabasePtr world(ZDOpenDatabase(OFFLINETZ_WORLD_DATABASE));
    const auto radius = [&](float lat, float lon, const Zones& zones) {
        return timezone_client::SafeKilometres(world.get(), lat, lon, zones);
    };
    EXPECT_GT(radius(48.85f, 2.35f, paris), 10.0);
    EXPECT_LT(radius(48.85f, 2.35f, paris), 160.0);  // Belgium is not so far.
    EXPECT_LT(radius(30.0f, -37.6f, {"Etc/GMT+3"}), 10.0);

    // The client is back when its service has died, and the library stays when it is unloaded.
    host::EndOwnerOf(sp<LoadedService::Interface>(latest));
    if (directory.IsDevices()) service.Unload();
    EXPECT_EQ(answers.Of(client, "48.85", "2.35"), paris);

    const Bytes next = SampleDatabase("\"Zone/A\"", 7, 90000);
    EXPECT_EQ(client->Version(), 1);
    ASSERT_TRUE(client->Update(next));
    EXPECT_EQ(answers.Of(client, "48.85", "2.36"), Zones{"Etc/GMT"});
    EXPECT_EQ(client->Version(), 7);
    EXPECT_EQ(next, ReadFile(active));
    client->Disconnect();
}

}  // namespace
