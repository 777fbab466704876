#include "certify.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "edge_error.h"

namespace offlinetz {

namespace {

class Certifier {
  public:
    Certifier(const std::vector<MovedVertex>& moved, const Originals& originals, const Grid& grid)
        : mMoved(moved), mOriginals(originals), mGrid(grid) {}

    // Measures the edges of a simplified ring.
    void AddRing(uint32_t zone, const GridRing& noded, const GridRing& simplified) {
        const GridPoint first = VertexBefore(simplified.front());
        auto at = static_cast<size_t>(std::find(noded.begin(), noded.end(), first) - noded.begin());
        if (at == noded.size()) throw std::logic_error("a simplified vertex comes from nowhere");
        for (size_t i = 0; i < simplified.size(); ++i) {
            const GridPoint& from = simplified[i];
            const GridPoint& to = simplified[NextIndex(i, simplified.size())];
            const GridPoint end = VertexBefore(to);
            GridRing chain = {noded[at]};
            do {
                if (chain.size() > noded.size())
                    throw std::logic_error("a simplified vertex is not in its turn");
                at = NextIndex(at, noded.size());
                chain.push_back(noded[at]);
            } while (chain.back() != end);
            if (!IsPastEdge(from) && !IsPastEdge(to)) AddEdge(zone, from, to, chain);
        }
    }

    // The edges, the worst one first, each once.
    std::vector<CertifiedEdge> Edges() && {
        const auto ends = [](const CertifiedEdge& e) { return std::minmax(e.from, e.to); };
        std::sort(mEdges.begin(), mEdges.end(), [&](const auto& x, const auto& y) {
            return x.metres != y.metres ? x.metres > y.metres : ends(x) < ends(y);
        });
        mEdges.erase(std::unique(mEdges.begin(), mEdges.end(),
                                 [&](const auto& x, const auto& y) { return ends(x) == ends(y); }),
                     mEdges.end());
        return std::move(mEdges);
    }

  private:
    bool IsPastEdge(const GridPoint& p) const {
        return std::abs(p.lat) > mGrid.Scale() || std::abs(p.lon) > mGrid.Scale();
    }

    // The vertex of the noded rings for which a vertex stands.
    GridPoint VertexBefore(const GridPoint& at) const {
        const auto moved = std::lower_bound(mMoved.begin(), mMoved.end(), MovedVertex{at, {}});
        return moved != mMoved.end() && moved->at == at ? moved->was : at;
    }

    // Measures the edge that replaces a chain of noded vertices.
    void AddEdge(uint32_t zone, const GridPoint& from, const GridPoint& to, const GridRing& chain) {
        const EdgeError error(mGrid, from, to);
        CertifiedEdge edge = {-1.0, from, to, zone, {}};
        const auto unitAt = [&](size_t i) { return mGrid.LongitudeMetres(chain[i].lat); };
        for (size_t i = 0; i < chain.size(); ++i) {
            const Originals::Range originals = mOriginals.At(chain[i]);
            if (originals.size() == 0) throw std::logic_error("a vertex has no source");
            double lonMetres = unitAt(i);
            for (const size_t next : {i - 1, i + 1}) {
                if (next >= chain.size()) continue;
                lonMetres = std::max(lonMetres, WidestUnit(mGrid, chain[i], unitAt(i), chain[next],
                                                           unitAt(next)));
            }
            for (const Original& o : originals) {
                double metres = error.At(o, lonMetres);
                if (i == 0) metres = std::max(metres, error.BeyondEnd(o, from, lonMetres));
                if (i + 1 == chain.size())
                    metres = std::max(metres, error.BeyondEnd(o, to, lonMetres));
                if (metres <= edge.metres) continue;
                edge.metres = metres;
                edge.original = o;
            }
        }
        mEdges.push_back(edge);
    }

    const std::vector<MovedVertex>& mMoved;
    const Originals& mOriginals;
    const Grid& mGrid;
    std::vector<CertifiedEdge> mEdges;
};

}  // namespace

Certificate Certify(const std::vector<ZoneRings>& noded, const std::vector<ZoneRings>& simplified,
                    const std::vector<MovedVertex>& moved, const Originals& originals,
                    const Grid& grid, double limit, size_t count) {
    Certifier certifier(moved, originals, grid);
    for (size_t zone = 0; zone < noded.size(); ++zone) {
        for (size_t ring = 0; ring < noded[zone].size(); ++ring)
            certifier.AddRing(static_cast<uint32_t>(zone), noded[zone][ring],
                              simplified[zone][ring]);
    }
    Certificate certificate;
    certificate.worst = std::move(certifier).Edges();
    if (certificate.worst.empty()) return certificate;
    const CertifiedEdge& worst = certificate.worst.front();
    certificate.metres = std::max(worst.metres, originals.GreatestDiagonal(grid));
    certificate.lat = grid.LatitudeDegrees(worst.original.Lat());
    certificate.lon = grid.LongitudeDegrees(worst.original.Lon());
    for (const CertifiedEdge& edge : certificate.worst)
        certificate.exceeding += edge.metres > limit ? 1 : 0;
    certificate.worst.resize(std::min(count, certificate.worst.size()));
    return certificate;
}

double RoundedUp(double metres) {
    return std::ceil(10.0 * metres) / 10.0;
}

std::string TextOf(const Certificate& certificate) {
    return fmt::format(
            "certified: no answer differs further than {:.1f} m from a source border (worst at "
            "{:.6f}, {:.6f})",
            RoundedUp(certificate.metres), certificate.lat, certificate.lon);
}

}  // namespace offlinetz
