// All zones of each of some points. The database is closed when its owner goes out of scope.
#include <offlinetz.h>

#include <iostream>
#include <memory>
#include <vector>

int main() {
    const std::vector<double> lats = {48.8566, 43.8256, 30.0};
    const std::vector<double> lons = {2.3522, 87.6168, -40.0};
    offlinetz_database* opened;
    const offlinetz_status status = offlinetz_open(nullptr, 0, &opened);
    const std::unique_ptr<offlinetz_database, void (*)(offlinetz_database*)> database(
            opened, offlinetz_close);
    if (status != OFFLINETZ_OK) {
        std::cerr << "zone: " << offlinetz_message(opened) << '\n';
        return 1;
    }
    std::vector<std::int64_t> offsets(lats.size() + 1);
    std::vector<std::int32_t> ids(2 * lats.size());  // Room for two zones a point.
    const auto find = [&] {
        return offlinetz_find_all(opened, lats.size(), lats.data(), sizeof(double), lons.data(),
                                  sizeof(double), offsets.data(), ids.data(), ids.size());
    };
    for (std::size_t size = find(); size > ids.size(); size = find())
        ids.resize(size);
    for (std::size_t i = 0; i < lats.size(); ++i) {
        for (std::int64_t at = offsets[i]; at < offsets[i + 1]; ++at)
            std::cout << offlinetz_zone_name(opened, ids[static_cast<std::size_t>(at)]) << ' ';
        std::cout << '\n';
    }
    return 0;
}
