// The world database against places whose zone is known from elsewhere than its polygons.
#include <LookupInterface.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/log.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "raw_database.h"
#include "transcript.h"

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

namespace {

class WorldTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        host::SetLogReceiver([](int, const char*, const std::string&) {});
        sWorld.reset(ZDOpenDatabase(OFFLINETZ_WORLD_DATABASE));
    }
    static void TearDownTestSuite() { sWorld.reset(); }
    void SetUp() override { ASSERT_NE(nullptr, sWorld); }

    static std::string Ask(double lat, double lon) {
        float safezone;
        char* answer = LookupTzIdIn(sWorld.get(), static_cast<float>(lat), static_cast<float>(lon),
                                    &safezone);
        std::string text = answer;
        std::free(answer);
        return text;
    }

    static bool Has(const std::string& answer, const std::string& zone) {
        return answer.find('"' + zone + '"') != std::string::npos;
    }

    static DatabasePtr sWorld;
};

DatabasePtr WorldTest::sWorld;

std::vector<std::string> SplitTabs(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, '\t');)
        fields.push_back(field);
    return fields;
}

// Degrees of +DDMM, +DDMMSS, +DDDMM or +DDDMMSS, given the digits of whole degrees.
double ParseIso6709(const std::string& text, size_t degreeDigits) {
    const double degrees = std::stod(text.substr(1, degreeDigits));
    const double minutes = std::stod(text.substr(1 + degreeDigits, 2));
    const std::string rest = text.substr(3 + degreeDigits);
    const double seconds = rest.empty() ? 0.0 : std::stod(rest);
    const double value = degrees + minutes / 60.0 + seconds / 3600.0;
    return text[0] == '-' ? -value : value;
}

TEST_F(WorldTest, AgreesWithTheZoneTables) {
    const struct {
        const char* path;
        int rows;
    } tables[] = {{"/usr/share/zoneinfo/zone.tab", 400}, {"/usr/share/zoneinfo/zone1970.tab", 300}};
    for (const auto& table : tables) {
        std::ifstream file(table.path);
        ASSERT_TRUE(file.is_open()) << table.path;
        int rows = 0;
        std::vector<std::string> wrong;
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '#') continue;
            const std::vector<std::string> fields = SplitTabs(line);
            const size_t split = fields[1].find_first_of("+-", 1);
            const std::string answer = Ask(ParseIso6709(fields[1].substr(0, split), 2),
                                           ParseIso6709(fields[1].substr(split), 3));
            ++rows;
            if (!Has(answer, fields[2])) wrong.push_back(fields[2] + " gave " + answer);
        }
        EXPECT_GE(rows, table.rows);
        // The row for Monaco, in whole minutes, stands in France, as zone.tab's readers know.
        for (const std::string& w : wrong)
            EXPECT_EQ("Europe/Monaco gave \"Europe/Paris\"", w);
    }
}

// GeoNames' cities of 2015: since then some zones were renamed, split or corrected.
TEST_F(WorldTest, AgreesWithCities) {
    std::map<std::string, std::string> renamed;
    std::ifstream links("/usr/share/zoneinfo/tzdata.zi");
    for (std::string line; std::getline(links, line);) {
        std::istringstream fields(line);
        std::string kind;
        std::string target;
        std::string name;
        if (fields >> kind >> target >> name && kind == "L") renamed[name] = target;
    }
    std::ifstream file("/usr/share/libtimezonemap/ui/cities15000.txt");
    ASSERT_TRUE(file.is_open());
    int cities = 0;
    int agree = 0;
    int agreeByNewName = 0;
    int sea = 0;
    for (std::string line; std::getline(file, line);) {
        const std::vector<std::string> fields = SplitTabs(line);
        ASSERT_GT(fields.size(), 17u);
        const std::string answer = Ask(std::stod(fields[4]), std::stod(fields[5]));
        ++cities;
        if (Has(answer, fields[17])) {
            ++agree;
        } else if (renamed.count(fields[17]) > 0 && Has(answer, renamed[fields[17]])) {
            ++agreeByNewName;
        } else if (answer.find("Etc/GMT") != std::string::npos) {
            ++sea;
        }
    }
    std::cerr << cities << " cities: " << agree << " agree, " << agreeByNewName
              << " by a new name, " << sea << " lie at sea\n";
    EXPECT_EQ(23461, cities);
    EXPECT_GE(agree, 23000);
    EXPECT_GE(agree + agreeByNewName, 23250);
    EXPECT_LE(sea, 10);
}

// Places whose answers are easy to get wrong.
TEST_F(WorldTest, AnswersPlacesAsTheTranscriptSays) {
    CheckTranscript(
            OFFLINETZ_TESTS "/world/places.transcript", [](const std::string&) {},
            [](const std::string& step) {
                const Words words = SplitStep(step);
                return Words{Ask(std::stod(words.at(0)), std::stod(words.at(1)))};
            });
}

// All around both poles and along the antimeridian the edge answers like the point beside it.
TEST_F(WorldTest, TheEdgeAnswersLikeThePointBesideIt) {
    for (int i = -1800; i <= 1800; i += 7) {
        const double lon = i / 10.0;
        EXPECT_EQ(Ask(-89.999, lon), Ask(-90.0, lon)) << lon;
        EXPECT_TRUE(Has(Ask(-90.0, lon), "Antarctica/McMurdo")) << lon;
        EXPECT_EQ(Ask(89.999, lon), Ask(90.0, lon)) << lon;
    }
    for (int i = -899; i <= 899; ++i) {
        const double lat = i / 10.0;
        EXPECT_EQ(Ask(lat, 179.9995), Ask(lat, 180.0)) << lat;
        EXPECT_EQ(Ask(lat, -179.9995), Ask(lat, -180.0)) << lat;
    }
}

TEST_F(WorldTest, CreditsItsSource) {
    EXPECT_THAT(ZDGetNotice(sWorld.get()),
                testing::HasSubstr("© OpenStreetMap contributors, ODbL 1.0"));
}

}  // namespace
