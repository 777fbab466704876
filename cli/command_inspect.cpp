// offlinetz inspect: the content of a database, as tables, JSON or GeoJSON.
#include <fmt/format.h>
#include <sha1.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "database/answer.h"
#include "database/open_database.h"
#include "database/output_file.h"
#include "inspected.h"
#include "inspector/areas.h"
#include "inspector/geojson.h"
#include "inspector/zones.h"
#include "message.h"
#include "options.h"
#include "progress.h"

namespace {

using offlinetz::InspectedDatabase;
using offlinetz::InspectedZone;

struct InspectOptions {
    std::string database;
    std::vector<std::string> zones;
    std::string sort = "name";
    std::string geojson;
    bool json = false;
};

struct ZoneRow {
    const InspectedZone* zone;
    size_t exteriorRings = 0;
    size_t holes = 0;
    double km2 = 0.0;
    std::array<double, 4> box = {};  // West, south, east, north.
};

ZoneRow RowOf(const InspectedZone& zone, int32_t scale) {
    ZoneRow row;
    row.zone = &zone;
    for (const offlinetz::GridRing& ring : zone.rings)
        ++(offlinetz::DoubleArea(ring) > 0 ? row.holes : row.exteriorRings);
    row.km2 = offlinetz::Rounded(offlinetz::SquareKilometres(zone.rings, scale), 1e3);
    if (!zone.rings.empty()) row.box = offlinetz::BoundsOf(zone.rings, scale);
    for (double& side : row.box)
        side = offlinetz::Rounded(side, 1e7);
    return row;
}

// The rows of the zones that the options name, or of all zones if they name none. Throws
// std::runtime_error if a zone does not exist.
std::vector<ZoneRow> Rows(const InspectOptions& options, const InspectedDatabase& inspected,
                          int32_t scale) {
    for (const std::string& name : options.zones) {
        if (std::none_of(inspected.zones.begin(), inspected.zones.end(),
                         [&](const InspectedZone& zone) { return zone.tzid == name; })) {
            throw std::runtime_error(options.database + ": has no zone " + name);
        }
    }
    std::vector<ZoneRow> rows;
    for (const InspectedZone& zone : inspected.zones) {
        if (options.zones.empty() ||
            std::count(options.zones.begin(), options.zones.end(), zone.tzid) > 0)
            rows.push_back(RowOf(zone, scale));
    }
    const auto most = [&](const auto& key) {
        std::stable_sort(rows.begin(), rows.end(),
                         [&](const ZoneRow& a, const ZoneRow& b) { return key(a) > key(b); });
    };
    if (options.sort == "area") most([](const ZoneRow& r) { return r.km2; });
    if (options.sort == "points") most([](const ZoneRow& r) { return r.zone->points; });
    if (options.sort == "rings") most([](const ZoneRow& r) { return r.zone->rings.size(); });
    if (options.sort == "bytes") most([](const ZoneRow& r) { return r.zone->ringBytes; });
    return rows;
}

std::string DigestOf(const ZDDatabase& database) {
    std::string digest;
    for (int i = 0; i < SHA1HashSize; ++i)
        digest += fmt::format("{:02x}", ZDGetChecksum(&database)[i]);
    return digest;
}

nlohmann::ordered_json HeaderJson(const ZDDatabase& database, const InspectedDatabase& inspected) {
    nlohmann::ordered_json fields = nlohmann::ordered_json::array();
    for (int i = 0; i < database.fieldCount; ++i)
        fields.push_back(database.fieldNames[i] != nullptr ? database.fieldNames[i] : "");
    return {{"version", database.version},
            {"table_type", database.tableType},
            {"precision", database.precision},
            {"fields", fields},
            {"notice", database.notice},
            {"sha1", DigestOf(database)},
            {"bytes",
             {{"header", database.boxTableOffset},
              {"box_table", database.metadataOffset - database.boxTableOffset},
              {"metadata", database.polygonDataOffset - database.metadataOffset},
              {"polygons", static_cast<uint32_t>(database.length) - database.polygonDataOffset},
              {"digest", int{SHA1HashSize}}}},
            {"entries", inspected.entries.size()},
            {"zones", inspected.zones.size()}};
}

nlohmann::ordered_json ZoneJson(const ZoneRow& row) {
    return {{"tzid", row.zone->tzid},
            {"outlines", row.exteriorRings},
            {"holes", row.holes},
            {"points", row.zone->points},
            {"entries", row.zone->entries},
            {"entry_points", row.zone->entryPoints},
            {"ring_bytes", row.zone->ringBytes},
            {"km2", row.km2},
            {"box", row.box}};
}

void PrintJson(const ZDDatabase& database, const InspectedDatabase& inspected,
               const std::vector<ZoneRow>& rows) {
    nlohmann::ordered_json all = HeaderJson(database, inspected);
    all["zones"] = nlohmann::ordered_json::array();
    for (const ZoneRow& row : rows)
        all["zones"].push_back(ZoneJson(row));
    std::printf("%s\n", offlinetz::OneLine(all).c_str());
}

void PrintTable(const ZDDatabase& database, const InspectedDatabase& inspected,
                const std::vector<ZoneRow>& rows) {
    std::printf("version    %u\n", ZDgetDBVersion(&database));
    std::printf("table type %u\n", static_cast<unsigned>(database.tableType));
    std::printf("precision  %u\n", static_cast<unsigned>(database.precision));
    std::printf("notice     %s\n", Printable(database.notice).c_str());
    std::printf("sha1       %s\n", DigestOf(database).c_str());
    std::printf("bytes      %zu: header %u, box table %u, metadata %u, polygons %u, digest %d\n",
                offlinetz::FileSize(database), database.boxTableOffset,
                database.metadataOffset - database.boxTableOffset,
                database.polygonDataOffset - database.metadataOffset,
                static_cast<uint32_t>(database.length) - database.polygonDataOffset,
                int{SHA1HashSize});
    std::printf("entries    %zu of %zu zones\n\n", inspected.entries.size(),
                inspected.zones.size());
    std::printf("%-32s %8s %6s %8s %8s %12s  %s\n", "zone", "exterior", "holes", "points", "bytes",
                "km2", "west south east north");
    for (const ZoneRow& row : rows) {
        std::printf(
                "%s\n",
                fmt::format("{:<32} {:>8} {:>6} {:>8} {:>8} {:>12.1f}  {:.4f} {:.4f} {:.4f} {:.4f}",
                            Printable(row.zone->tzid), row.exteriorRings, row.holes,
                            row.zone->points, row.zone->ringBytes, row.km2, row.box[0], row.box[1],
                            row.box[2], row.box[3])
                        .c_str());
    }
}

// Writes the zones' polygons as a FeatureCollection, one feature a line.
void WriteGeoJson(const InspectOptions& options, const std::vector<ZoneRow>& rows, int32_t scale,
                  Progress* progress) {
    std::string text = "{\"type\":\"FeatureCollection\",\"features\":[\n";
    for (size_t i = 0; i < rows.size(); ++i) {
        progress->Show("writing", i, rows.size());
        const offlinetz::GeometryPtr area = offlinetz::AreaOf(rows[i].zone->rings, scale);
        text += offlinetz::FeatureOf({{"tzid", rows[i].zone->tzid}}, area.get());
        text += i + 1 < rows.size() ? ",\n" : "\n";
    }
    text += "]}\n";
    offlinetz::WriteOutput(options.geojson, {text.begin(), text.end()});
}

int RunInspect(const InspectOptions& options) {
    if (!options.geojson.empty()) {
        offlinetz::CheckOutputPath(options.geojson, {options.database});
    }
    Progress progress;
    const InspectedFile file = Inspect(options.database, &progress);
    const std::vector<ZoneRow> rows = Rows(options, file.inspected, file.scale);
    if (!options.geojson.empty()) {
        WriteGeoJson(options, rows, file.scale, &progress);
        return kExitOk;
    }
    progress.Show("", 0, 0);
    if (options.json) {
        PrintJson(*file.database, file.inspected, rows);
    } else {
        PrintTable(*file.database, file.inspected, rows);
    }
    return kExitOk;
}

}  // namespace

void AddInspectCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<InspectOptions>();
    CLI::App* command = app->add_subcommand(
            "inspect", "Shows the parts of a database, and its zones with their areas");
    command->add_option("FILE", options->database, "Database file")->required()->type_name("");
    command->add_option("--zone", options->zones,
                        "Show this zone only; may be given more than once (default: all zones)")
            ->type_name("ZONE");
    command->add_option("--sort", options->sort,
                        "Order of the zones: name, or the largest area, points, rings or bytes "
                        "first (default: name)")
            ->check(CLI::IsMember({"name", "area", "points", "rings", "bytes"}).description(""))
            ->type_name("KEY");
    command->add_option("--geojson", options->geojson,
                        "Write the zones' polygons, without the tiling, to FILE; - is standard "
                        "output (default: print tables)")
            ->check(NamesFile())
            ->type_name("FILE");
    command->add_flag("--json", options->json, "Print one JSON object (default: tables)");
    command->footer(
            "Areas are in square kilometres (km2), bounding boxes in degrees, and bytes are\n"
            "those of a zone's rings.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz inspect new.bin --sort area\n"
            "  $ offlinetz inspect new.bin --zone Europe/Paris --geojson paris.geojson");
    command->callback([options, exitCode] { *exitCode = RunInspect(*options); });
}
