// offlinetz_sqlite: time zones in SQL, as a loadable extension of SQLite over libofflinetz.
//
//     timezone(lat, lon)            the name of the first zone at a point; NULL if there is none
//     timezones(lat, lon)           the names of all zones, as a JSON array
//     timezone_border(lat, lon)     the nearest border, as a JSON object with the members of
//                                   offlinetz_border: {"metres":…,"holds":…,"lat":…,"lon":…,
//                                   "bearing":…,"zones":[…]}; NULL if there is none
//     timezones_within(lat, lon, metres)
//                                   the zones within a distance, the nearest first, as a JSON array
//                                   of objects: {"zone":…,"metres":…}
//     timezone_open(path)           opens another database for this connection; returns its version
//
// `lat` and `lon` are degrees. They and `metres` are numbers, or texts that SQLite's numeric
// affinity turns into numbers. All but timezone_open return NULL if an argument is NULL. Without
// timezone_open they use the installed world database, which the first lookup of a connection
// opens.
//
// Threads. Each connection has its own database and shares nothing with others. SQLite calls a
// function while it holds the mutex of its connection. In a build or a connection without that
// mutex, the application lets no two threads use one connection at a time, as SQLite requires.
#include <offlinetz.h>
#include <sqlite3ext.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

SQLITE_EXTENSION_INIT1

namespace {

using DatabasePtr = std::unique_ptr<offlinetz_database, decltype(&offlinetz_close)>;

// What SQLite is given for a zone.
struct Texts {
    const std::string* name;
    const std::string* json;  // An array of the name alone.
};

// What the functions of a connection share. Freed with the last of them, which is when SQLite
// closes the connection.
struct State {
    DatabasePtr database = {nullptr, offlinetz_close};
    std::vector<Texts> texts;  // Of each id of the database.
    // The texts of all databases that this connection has opened. SQLite is given them without a
    // copy, and may still hold one when timezone_open replaces the database.
    std::unordered_set<std::string> keptTexts;

    const std::string* Keep(const std::string& text) { return &*keptTexts.insert(text).first; }
    const Texts& TextsOf(int32_t id) const { return texts[static_cast<size_t>(id)]; }
};
using StatePtr = std::shared_ptr<State>;

std::string JsonString(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') json += '\\';
        if (static_cast<unsigned char>(c) >= 0x20) {
            json += c;
        } else {
            json += c < 0x10 ? "\\u000" : "\\u001";
            json += "0123456789abcdef"[c % 16];
        }
    }
    return json + '"';
}

std::string JsonNumber(double value) {
    char text[32];
    return {text, std::to_chars(text, std::end(text), value).ptr};
}

std::string JsonNames(const State& state, const int32_t* ids, size_t count) {
    std::string json = "[";
    for (size_t i = 0; i < count; ++i)
        json += (i > 0 ? "," : "") + JsonString(*state.TextsOf(ids[i]).name);
    return json + ']';
}

constexpr unsigned kJson = 'J';  // The subtype of SQLite's JSON functions.

void SetJson(sqlite3_context* context, const std::string& json) {
    sqlite3_result_text64(context, json.data(), json.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    sqlite3_result_subtype(context, kJson);
}

// Gives SQLite a text that lives as long as the connection.
void SetText(sqlite3_context* context, const std::string& text) {
    sqlite3_result_text64(context, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

State* StateOf(sqlite3_context* context) {
    return static_cast<StatePtr*>(sqlite3_user_data(context))->get();
}

// Opens a database, and closes the previous one. `path` may be null, as for offlinetz_open. If it
// fails, reports the error, leaves the previous one open and returns false. Throws std::bad_alloc.
bool Open(sqlite3_context* context, const char* path, State* state) {
    offlinetz_database* opened;
    const offlinetz_status status = offlinetz_open(path, 0, &opened);
    DatabasePtr database(opened, offlinetz_close);
    if (status != OFFLINETZ_OK) {
        sqlite3_result_error(context, offlinetz_message(opened), -1);
        return false;
    }
    std::vector<Texts> texts;
    for (int32_t id = 0; id < offlinetz_zone_count(opened); ++id) {
        const std::string name = offlinetz_zone_name(opened, id);
        texts.push_back({state->Keep(name), state->Keep("[" + JsonString(name) + "]")});
    }
    state->texts.swap(texts);
    state->database.swap(database);
    return true;
}

// A point and its answer.
struct Found {
    const State* state;
    double lat;
    double lon;
    int32_t id;  // Of the first zone.
    size_t count;
};

// Looks up the point of the arguments; opens the installed database if none is open. Returns false
// if the result of the SQL function is settled: NULL or an error. Throws std::bad_alloc.
bool LookUp(sqlite3_context* context, sqlite3_value** values, Found* found) {
    const int lat = sqlite3_value_numeric_type(values[0]);
    const int lon = sqlite3_value_numeric_type(values[1]);
    if (lat == SQLITE_NULL || lon == SQLITE_NULL) return false;
    const auto isNumber = [](int type) { return type == SQLITE_FLOAT || type == SQLITE_INTEGER; };
    if (!isNumber(lat) || !isNumber(lon)) {
        sqlite3_result_error(
                context,
                isNumber(lat) ? "the longitude is not a number" : "the latitude is not a number",
                -1);
        return false;
    }
    State* const state = StateOf(context);
    if (state->database == nullptr && !Open(context, nullptr, state)) return false;
    *found = {state, sqlite3_value_double(values[0]), sqlite3_value_double(values[1]), 0, 0};
    found->count = offlinetz_find(state->database.get(), found->lat, found->lon, &found->id, 1,
                                  nullptr, nullptr);
    if (found->id != OFFLINETZ_INVALID_POINT) return true;
    sqlite3_result_error(context,
                         "the point is outside the world: a latitude is -90 to 90 degrees, a "
                         "longitude -180 to 180",
                         -1);
    return false;
}

void First(sqlite3_context* context, sqlite3_value** values) {
    Found found;
    if (LookUp(context, values, &found) && found.count > 0)
        SetText(context, *found.state->TextsOf(found.id).name);
}

void All(sqlite3_context* context, sqlite3_value** values) {
    Found found;
    if (!LookUp(context, values, &found)) return;
    if (found.count == 1) {
        SetText(context, *found.state->TextsOf(found.id).json);
    } else {
        std::vector<int32_t> ids(found.count);
        offlinetz_find(found.state->database.get(), found.lat, found.lon, ids.data(), ids.size(),
                       nullptr, nullptr);
        SetJson(context, JsonNames(*found.state, ids.data(), ids.size()));
    }
    sqlite3_result_subtype(context, kJson);
}

// Reports an error if distances are not known, and returns false.
bool RequireBorders(sqlite3_context* context, const Found& found) {
    if (offlinetz_has_borders(found.state->database.get()) != 0) return true;
    sqlite3_result_error(context, "the database is not tiled: it has no distances to borders", -1);
    return false;
}

void Border(sqlite3_context* context, sqlite3_value** values) {
    Found found;
    if (!LookUp(context, values, &found) || !RequireBorders(context, found)) return;
    offlinetz_border border;
    if (offlinetz_nearest_border(found.state->database.get(), found.lat, found.lon,
                                 std::numeric_limits<double>::infinity(), &border) != 1) {
        return;
    }
    const std::pair<const char*, double> members[] = {{"metres", border.metres},
                                                      {"holds", border.holds},
                                                      {"lat", border.lat},
                                                      {"lon", border.lon},
                                                      {"bearing", border.bearing}};
    std::string json = "{";
    for (const auto& [key, value] : members) {
        json += '"' + std::string(key) + "\":" + JsonNumber(value) + ',';
    }
    const auto count = static_cast<size_t>(std::min(border.count, int32_t{OFFLINETZ_BORDER_ROOM}));
    SetJson(context, json + "\"zones\":" + JsonNames(*found.state, border.ids, count) + '}');
}

void Within(sqlite3_context* context, sqlite3_value** values) {
    Found found;
    const int type = sqlite3_value_numeric_type(values[2]);
    if (type == SQLITE_NULL) return;
    if (!LookUp(context, values, &found) || !RequireBorders(context, found)) return;
    if (type != SQLITE_FLOAT && type != SQLITE_INTEGER) {
        sqlite3_result_error(context, "the distance is not a number", -1);
        return;
    }
    std::vector<int32_t> ids(OFFLINETZ_MOST_WITHIN);
    std::vector<double> distances(OFFLINETZ_MOST_WITHIN);
    const size_t count = offlinetz_zones_within(found.state->database.get(), found.lat, found.lon,
                                                sqlite3_value_double(values[2]), ids.data(),
                                                distances.data(), OFFLINETZ_MOST_WITHIN);
    std::string json = "[";
    for (size_t i = 0; i < count; ++i) {
        json += (i > 0 ? ",{\"zone\":" : "{\"zone\":") +
                JsonString(*found.state->TextsOf(ids[i]).name) +
                ",\"metres\":" + JsonNumber(distances[i]) + '}';
    }
    SetJson(context, json + ']');
}

// NULL opens the installed database.
void OpenPath(sqlite3_context* context, sqlite3_value** values) {
    const auto* const path = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
    if (path == nullptr && sqlite3_value_type(values[0]) != SQLITE_NULL) throw std::bad_alloc();
    State* const state = StateOf(context);
    if (Open(context, path, state))
        sqlite3_result_int(context, offlinetz_version(state->database.get()));
}

// An SQL function, which may throw std::bad_alloc, as SQLite calls it.
template <void (*kFunction)(sqlite3_context*, sqlite3_value**)>
void Call(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
    try {
        kFunction(context, values);
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(context);
    }
}

#ifndef SQLITE_RESULT_SUBTYPE  // SQLite before 3.45 ignores it.
#define SQLITE_RESULT_SUBTYPE 0x001000000
#endif

int Register(sqlite3* connection) {
    // In one statement each lookup is deterministic: timezone_open is not meant for a statement
    // with lookups. What is stored by index or generated column belongs to the database of that
    // time. Lookups change nothing and read one file, so a schema may call them; only the
    // application may name a file.
    constexpr int kLookup = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    constexpr int kOpening = SQLITE_UTF8 | SQLITE_DIRECTONLY;
    struct Function {
        const char* name;
        int parameters;
        int flags;
        void (*call)(sqlite3_context*, int, sqlite3_value**);
    };
    constexpr Function kFunctions[] = {
            {"timezone", 2, kLookup, Call<First>},
            {"timezones", 2, kLookup | SQLITE_RESULT_SUBTYPE, Call<All>},
            {"timezone_border", 2, kLookup | SQLITE_RESULT_SUBTYPE, Call<Border>},
            {"timezones_within", 3, kLookup | SQLITE_RESULT_SUBTYPE, Call<Within>},
            {"timezone_open", 1, kOpening, Call<OpenPath>}};
    const auto state = std::make_shared<State>();
    for (const Function& f : kFunctions) {
        const int status = sqlite3_create_function_v2(
                connection, f.name, f.parameters, f.flags, new StatePtr(state), f.call, nullptr,
                nullptr, [](void* data) { delete static_cast<StatePtr*>(data); });
        if (status != SQLITE_OK) return status;  // SQLite has freed the data.
    }
    return SQLITE_OK;
}

}  // namespace

// SQLite calls it when a connection loads the extension. It derives the name from offlinetz_sqlite.
extern "C" __attribute__((visibility("default"))) int sqlite3_offlinetzsqlite_init(
        sqlite3* connection, char** /*error*/, const sqlite3_api_routines* pApi) {
    SQLITE_EXTENSION_INIT2(pApi)
    try {
        return Register(connection);
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    }
}
