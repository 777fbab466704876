// The client of docs/client.md, compiled as it stands there, against the library.
#include <client_of_the_documents.h>
#include <gtest/gtest.h>
#include <host/death_registry.h>

#include <condition_variable>
#include <filesystem>

#include "loaded_service.h"
#include "sample_databases.h"
#include "service_files.h"
#include "temporary_directory.h"

namespace {

using android::sp;
using timezone_client::Client;
using Zones = std::vector<std::string>;

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

TEST(ClientOfTheDocuments, AsksUpdatesAndSurvivesTheServicesDeath) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory("offlinetz");
    std::filesystem::copy(OFFLINETZ_WORLD_DATABASE, ACTIVE);
    std::filesystem::copy(OFFLINETZ_WORLD_DATABASE, BACKUP);
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
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

    ZDDatabase* const world = ZDOpenDatabase(OFFLINETZ_WORLD_DATABASE);
    const double kilometres = timezone_client::SafeKilometres(world, 48.85f, 2.35f, paris);
    EXPECT_GT(kilometres, 10.0);
    EXPECT_LT(kilometres, 160.0);  // Belgium is not so far.
    EXPECT_LT(timezone_client::SafeKilometres(world, 30.0f, -37.6f, {"Etc/GMT+3"}), 10.0);
    ZDCloseDatabase(world);

    const sp<LoadedService::Interface> dead = latest;
    host::EndOwnerOf(dead);
    EXPECT_NE(latest, dead);
    EXPECT_EQ(answers.Of(client, "48.85", "2.35"), paris);

    EXPECT_EQ(client->Version(), 1);
    ASSERT_TRUE(client->Update(SampleDatabase("\"Zone/A\"", 7, 90000)));
    EXPECT_EQ(answers.Of(client, "48.85", "2.36"), Zones{"Etc/GMT"});
    EXPECT_EQ(client->Version(), 7);
    client->Disconnect();
}

}  // namespace
