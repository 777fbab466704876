#include "reader.h"

#include <stdexcept>

#include "compiler/self_check.h"

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
        return offlinetz::ZonesAt(*mDatabase, lat, lon);
    }

  private:
    DatabasePtr mDatabase;
    bool mDistance;
};

}  // namespace

DatabasePtr OpenDatabase(const std::string& path) {
    return offlinetz::OpenDatabase(path, /*verify=*/false);
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
