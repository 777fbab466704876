#include "reader.h"

#include <self_check.h>

#include <stdexcept>

namespace bench {

namespace {

class Reader : public Peer {
  public:
    Reader(const std::string& path, bool distance)
        : mDatabase(OpenDatabase(path)), mDistance(distance) {}

    void Look(float lat, float lon) override {
        float distance;
        ZDFreeResults(ZDLookup(mDatabase.get(), lat, lon, mDistance ? &distance : nullptr));
    }

    std::vector<std::string> ZonesAt(float lat, float lon) override {
        return offlinetz::ZonesAt(mDatabase.get(), lat, lon);
    }

  private:
    DatabasePtr mDatabase;
    bool mDistance;
};

}  // namespace

DatabasePtr OpenDatabase(const std::string& path) {
    DatabasePtr database(ZDOpenDatabase(path.c_str()));
    if (database == nullptr) throw std::runtime_error(path + ": the reader refuses it");
    return database;
}

float LookWithDistance(const ZDDatabase* database, const Point& p) {
    float distance = 0.0f;
    ZDFreeResults(ZDLookup(database, p.lat, p.lon, &distance));
    return distance;
}

std::unique_ptr<Peer> LoadReader(const std::string& path, bool distance) {
    return std::make_unique<Reader>(path, distance);
}

}  // namespace bench
