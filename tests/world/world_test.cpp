// The world database against places whose zone is known from elsewhere than its polygons.
#include <LookupInterface.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/log.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
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

// Within three quarters of the distance, less three units, no point has another answer; nautical
// zones change at their meridians besides.
TEST_F(WorldTest, AnswersHoldWithinTheSafeRadius) {
    const auto zonesAt = [](double lat, double lon, float* distance) {
        ZDResult* results =
                ZDLookup(sWorld.get(), static_cast<float>(lat), static_cast<float>(lon), distance);
        std::string zones;
        for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r)
            zones += r->fieldValues[0];
        ZDFreeResults(results);
        return zones;
    };
    std::mt19937_64 random(9);
    const auto uniform = [&random](double low, double high) {
        return low + (high - low) * static_cast<double>(random() >> 11) * 0x1p-53;
    };
    // Enclaves and islands, the poles, the antimeridian.
    std::vector<std::pair<double, double>> places = {
            {51.44, 4.93},  {47.697, 8.69},  {42.464, 1.98},    {-29.6, 28.2},  {41.903, 12.453},
            {-17.8, 177.9}, {-44.0, -176.5}, {-27.12, -109.35}, {36.0, 14.3},   {64.0, 179.9},
            {-89.9, 10.0},  {89.9, -120.0},  {-77.85, 166.67},  {65.8, -169.0}, {0.0, 180.0}};
    for (int i = 0; i < 2000; ++i)
        places.emplace_back(std::asin(uniform(-1, 1)) * 57.29577951308232, uniform(-180, 180));
    constexpr double kUnit = 90.0 / 1048576.0;
    for (const auto& [lat, lon] : places) {
        float distance;
        const std::string zones = zonesAt(lat, lon, &distance);
        const double radius = 0.75 * static_cast<double>(distance) - 3.0 * kUnit;
        for (int k = 0; k < 40 && radius > 0.0; ++k) {
            const double angle = uniform(0.0, 6.283185307);
            const double length = radius * (k % 2 == 0 ? 1.0 : uniform(0.0, 1.0));
            const double otherLat = lat + length * std::sin(angle);
            const double otherLon = lon + length * std::cos(angle);
            if (std::fabs(otherLat) > 90.0 || std::fabs(otherLon) > 180.0) continue;
            ASSERT_EQ(zones, zonesAt(otherLat, otherLon, nullptr))
                    << lat << " " << lon << " says " << distance << ", not at " << otherLat << " "
                    << otherLon;
        }
    }
}

TEST_F(WorldTest, CreditsItsSource) {
    EXPECT_THAT(ZDGetNotice(sWorld.get()),
                testing::HasSubstr("© OpenStreetMap contributors, ODbL 1.0"));
}

}  // namespace
