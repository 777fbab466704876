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

TEST_F(WorldTest, AnswersPlacesThatAreEasyToGetWrong) {
    const struct {
        const char* place;
        double lat;
        double lon;
        const char* answer;
    } places[] = {
            {"Baarle-Hertog, Belgium in the Netherlands", 51.4386, 4.9310, "\"Europe/Brussels\""},
            {"Baarle-Nassau, around it", 51.4460, 4.9270, "\"Europe/Amsterdam\""},
            {"Büsingen, Germany in Switzerland", 47.6967, 8.6900, "\"Europe/Busingen\""},
            {"Schaffhausen, beside it", 47.6960, 8.6350, "\"Europe/Zurich\""},
            {"Campione, Italy in Switzerland", 45.9700, 8.9710, "\"Europe/Rome\""},
            {"Llívia, Spain in France", 42.4640, 1.9810, "\"Europe/Madrid\""},
            {"Maseru, Lesotho", -29.3100, 27.4800, "\"Africa/Maseru\""},
            {"Ladybrand, across the river", -29.1940, 27.4570, "\"Africa/Johannesburg\""},
            {"St Peter's, Vatican", 41.9022, 12.4533, "\"Europe/Vatican\""},
            {"Trastevere, Rome", 41.8890, 12.4690, "\"Europe/Rome\""},
            {"San Marino", 43.9360, 12.4470, "\"Europe/San_Marino\""},
            {"Kaliningrad", 54.7100, 20.5100, "\"Europe/Kaliningrad\""},
            {"Ceuta", 35.8890, -5.3160, "\"Africa/Ceuta\""},
            {"Gibraltar", 36.1400, -5.3530, "\"Europe/Gibraltar\""},
            {"West Wendover, Nevada on mountain time", 40.7390, -114.0730, "\"America/Denver\""},
            {"Eucla, between two times", -31.6770, 128.8890, "\"Australia/Eucla\""},
            {"Broken Hill", -31.9560, 141.4650, "\"Australia/Broken_Hill\""},
            {"Lord Howe Island", -31.5530, 159.0820, "\"Australia/Lord_Howe\""},
            {"Easter Island", -27.1500, -109.4300, "\"Pacific/Easter\""},
            {"Pitcairn", -25.0670, -130.1000, "\"Pacific/Pitcairn\""},
            {"Tristan da Cunha", -37.0680, -12.3130, "\"Atlantic/St_Helena\""},
            {"Chatham Islands", -43.9500, -176.5600, "\"Pacific/Chatham\""},
            {"Kiritimati", 1.8700, -157.4300, "\"Pacific/Kiritimati\""},
            {"Little Diomede", 65.7540, -168.9200, "\"America/Nome\""},
            {"Big Diomede", 65.7800, -169.0600, "\"Asia/Anadyr\""},
            {"Taveuni, west of the antimeridian", -16.8500, 179.9700, "\"Pacific/Fiji\""},
            {"Taveuni, east of it", -16.8000, -179.9900, "\"Pacific/Fiji\""},
            {"Wrangel Island on the antimeridian", 71.2000, 180.0, "\"Asia/Anadyr\""},
            {"the same from the other side", 71.2000, -180.0, "\"Asia/Anadyr\""},
            {"the South Pole", -90.0, 0.0, "\"Antarctica/McMurdo\""},
            {"the North Pole", 90.0, 0.0, "\"Etc/GMT\""},
            {"Ürümqi, in two times", 43.8256, 87.6168, "\"Asia/Shanghai\"\"Asia/Urumqi\""},
            {"Hebron", 31.5300, 35.0950, "\"Asia/Hebron\""},
            {"Ariel, in dispute", 32.1050, 35.1850, "\"Asia/Hebron\"\"Asia/Jerusalem\""},
            {"Sokhumi, in dispute", 43.0000, 40.9900, "\"Europe/Moscow\"\"Asia/Tbilisi\""},
            {"the Gulf of Guinea", 0.0, 0.0, "\"Etc/GMT\""},
            {"the Pacific west of the date line", 40.0, 179.0, "\"Etc/GMT-12\""},
            {"the Pacific east of it", 40.0, -179.0, "\"Etc/GMT+12\""},
            {"north of the world", 90.1, 0.0, "\"error:error input\""},
    };
    for (const auto& p : places)
        EXPECT_EQ(p.answer, Ask(p.lat, p.lon)) << p.place;
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
