// The whole service, used by the client whose source docs/client.md shows.
#include <client_of_the_documents.h>
#include <gtest/gtest.h>

#include <future>

#include "loaded_service.h"
#include "service_steps.h"

using timezone_client::Client;
using Zones = std::vector<std::string>;

namespace {

TEST(EndToEnd, TheDocumentedClientIsServed) {
    const ServiceDirectory directory;
    std::filesystem::copy(OFFLINETZ_WORLD_DATABASE, kActive);
    LoadedService service;
    std::promise<Zones> answer;
    sp<IOfflinetimezone> latest;
    bool isBackAgain = false;
    bool mayHaveWaited = false;
    const sp<Client> client = new Client(
            [&](bool mayWait) {
                mayHaveWaited = mayWait;
                latest = service.Fetch();
                return latest;
            },
            [&](const std::string&, const std::string&, const Zones& zones) {
                answer.set_value(zones);
            },
            [&](bool isBack) { isBackAgain = isBack; });
    const auto ask = [&](const char* lat, const char* lon) {
        answer = {};
        std::future<Zones> zones = answer.get_future();
        EXPECT_TRUE(client->Ask(lat, lon));
        return zones.wait_for(std::chrono::minutes(1)) == std::future_status::ready
                       ? zones.get()
                       : Zones{"no answer"};
    };
    EXPECT_FALSE(client->Ask("48.85", "2.35"));
    ASSERT_TRUE(client->Connect());
    EXPECT_FALSE(latest->isRemote());
    const Zones paris = {"Europe/Paris"};
    EXPECT_EQ(ask("48.85", "2.35"), paris);
    EXPECT_EQ(ask("43.8256", "87.6168"), (Zones{"Asia/Shanghai", "Asia/Urumqi"}));
    EXPECT_EQ(ask("30", "-40"), Zones{"Etc/GMT+3"});
    EXPECT_EQ(ask("91", "0"), Zones{});

    // The client registers again when its service has died.
    const sp<IOfflinetimezone> dead = latest;
    platform::EndOwnerOf(dead);
    EXPECT_TRUE(isBackAgain && latest != dead && !mayHaveWaited);
    EXPECT_EQ(ask("48.85", "2.35"), paris);

    const Bytes next = SampleDatabase("A", 7, 90000);
    EXPECT_EQ(client->Version(), 4);
    ASSERT_TRUE(client->Update(next));
    EXPECT_EQ(ask("48.85", "2.36"), Zones{"Etc/GMT"});
    EXPECT_EQ(client->Version(), 7);
    EXPECT_EQ(next, ReadFile(kActive));
    client->Disconnect();
    EXPECT_FALSE(client->Ask("1", "2"));
}

}  // namespace
