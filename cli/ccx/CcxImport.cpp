#include "cli/ccx/CcxImport.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

namespace slabadapt::ccx {

namespace {

using Tensor = std::array<double, 6>; // xx, yy, zz, xy, xz, yz (CalculiX's order)
constexpr std::size_t XX = 0, YY = 1, XY = 3, XZ = 4, YZ = 5;

const double kSqrt3 = std::sqrt(3.0);

std::string ElementText(std::size_t e) {
    return "element " + std::to_string(e + 1);
}

std::string Upper(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return s;
}

bool IsShellOrientation(const std::string& name) {
    return Upper(name).rfind("_SHELL_", 0) == 0;
}

Tensor PlaneStressFromStrain(const Tensor& e, const IsotropicElastic& m) {
    const double c = m.young / (1.0 - m.poisson * m.poisson);
    const double g2 = m.young / (1.0 + m.poisson); // 2G: tensor strain -> shear stress
    return {c * (e[XX] + m.poisson * e[YY]),
            c * (e[YY] + m.poisson * e[XX]),
            0.0,
            g2 * e[XY],
            g2 * e[XZ],
            g2 * e[YZ]};
}

/// The lower/upper pair of one in-plane point, in global axes.
struct Pair {
    std::array<double, 2> xy{};
    Tensor sLow{}, sUp{}, eLow{}, eUp{};
};

StrintgPoint PairValues(const Pair& p, double t, bool shell) {
    StrintgPoint r;
    auto& f = r.forces;       // mx my mxy qx qy nx ny nxy
    auto& d = r.deformations; // kx ky kxy gxz gyz ex ey gxy
    const std::array<std::size_t, 3> plane = {XX, YY, XY};
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t c = plane[i];
        const double shear = c == XY ? 2.0 : 1.0; // engineering shear
        f[5 + i] = t * (p.sLow[c] + p.sUp[c]) / 2.0;
        d[5 + i] = shear * (p.eLow[c] + p.eUp[c]) / 2.0;
        if (shell) {
            f[i] = t * t * (p.sUp[c] - p.sLow[c]) / (4.0 * kSqrt3);
            d[i] = shear * kSqrt3 * (p.eUp[c] - p.eLow[c]) / t;
        }
    }
    if (shell) {
        f[3] = t * (p.sLow[XZ] + p.sUp[XZ]) / 2.0;
        f[4] = t * (p.sLow[YZ] + p.sUp[YZ]) / 2.0;
        d[3] = p.eLow[XZ] + p.eUp[XZ];
        d[4] = p.eLow[YZ] + p.eUp[YZ];
    }
    return r;
}

double Distance2(const std::array<double, 2>& a, double x, double y) {
    return (a[0] - x) * (a[0] - x) + (a[1] - y) * (a[1] - y);
}

} // namespace

IsotropicElastic ReadDeckElastic(const std::filesystem::path& inpFile) {
    std::ifstream in(inpFile);
    if (!in)
        throw ImportError(inpFile.string() +
                          ": cannot open the deck to read *ELASTIC; give --young and --poisson");
    std::vector<IsotropicElastic> found;
    std::string line;
    bool expectData = false;
    long lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (line.rfind("**", 0) == 0 || line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        if (line[0] == '*') {
            const std::string key = Upper(line);
            expectData = key.rfind("*ELASTIC", 0) == 0;
            if (expectData && key.find("TYPE") != std::string::npos &&
                key.find("ISO") == std::string::npos)
                throw ImportError(
                    inpFile.string() + ":" + std::to_string(lineNo) +
                    ": only isotropic *ELASTIC can be used to recompute plane stress");
            continue;
        }
        if (expectData) {
            std::replace(line.begin(), line.end(), ',', ' ');
            std::istringstream s(line);
            IsotropicElastic m;
            if (!(s >> m.young >> m.poisson))
                throw ImportError(inpFile.string() + ":" + std::to_string(lineNo) +
                                  ": expected E, nu after *ELASTIC");
            if (std::none_of(found.begin(), found.end(), [&](const IsotropicElastic& o) {
                    return o.young == m.young && o.poisson == m.poisson;
                }))
                found.push_back(m);
            expectData = false; // temperature-dependent rows would follow: take the first
        }
    }
    if (found.size() != 1)
        throw ImportError(inpFile.string() + ": " +
                          (found.empty() ? std::string("no *ELASTIC found")
                                         : std::string("several different *ELASTIC materials")) +
                          "; give --young and --poisson");
    return found.front();
}

namespace {

// The printed results of element e, with as many points of S, E and COORD as its kind prints.
const DatElement& PrintedResults(const ProjectMesh& mesh, const DatIncrement& increment,
                                 std::size_t e) {
    const auto it = increment.elements.find(static_cast<long>(e + 1));
    if (it == increment.elements.end())
        throw ImportError(ElementText(e) + " has no results at time " +
                          std::to_string(increment.time) +
                          " (print it with *EL PRINT of S, E and COORD)");
    const DatElement& d = it->second;
    const std::size_t corners = mesh.elements[e].nodes.size();
    const std::size_t printed = corners == 3 ? 2 : 8;
    if (d.stress.size() != printed || d.strain.size() != printed || d.coords.size() != printed)
        throw ImportError(ElementText(e) + ": expected " + std::to_string(printed) +
                          " integration points of S, E and COORD for a " + std::to_string(corners) +
                          "-node element, found " + std::to_string(d.stress.size()) + ", " +
                          std::to_string(d.strain.size()) + " and " +
                          std::to_string(d.coords.size()) +
                          " (CPS3/S3 and CPS4/S4 with full integration are supported)");
    if (!d.orientation.empty() && !IsShellOrientation(d.orientation))
        throw ImportError(ElementText(e) + ": results are printed in the orientation '" +
                          d.orientation + "'; remove the *ORIENTATION of the deck");
    return d;
}

// A shell's results are printed in its local axes, whose z' is the element normal. When that
// normal points down (-z), x' = x and y' = -y: the xy and xz components change sign.
void TurnShellAxesToGlobal(Pair& p) {
    for (Tensor* s : {&p.sLow, &p.sUp, &p.eLow, &p.eUp}) {
        (*s)[XY] = -(*s)[XY];
        (*s)[XZ] = -(*s)[XZ];
    }
}

// The printed points of element e paired through the thickness: point k of the lower face of
// the 3-D expansion with point k of the upper one, sorted into below and above in z.
std::vector<Pair> PairsThroughThickness(const ProjectMesh& mesh, std::size_t e, const DatElement& d,
                                        double tol,
                                        const std::optional<IsotropicElastic>& planeStress) {
    const double t = mesh.Thickness(e);
    const std::size_t perFace = d.coords.size() / 2;
    std::vector<Pair> pairs(perFace);
    for (std::size_t k = 0; k < perFace; ++k) {
        const std::size_t a = k, b = k + perFace; // a on the face below the element normal
        const auto& ca = d.coords[a];
        const auto& cb = d.coords[b];
        if (std::sqrt(Distance2({ca[0], ca[1]}, cb[0], cb[1])) > tol)
            throw ImportError(ElementText(e) + ": integration points " + std::to_string(a + 1) +
                              " and " + std::to_string(b + 1) +
                              " are not above one another: slabs must lie in the x-y plane");
        const double dz = cb[2] - ca[2];
        const double tPrinted = kSqrt3 * std::abs(dz);
        if (std::abs(tPrinted - t) > 1e-3 * t + 1e-5 * (1.0 + std::abs(ca[2])))
            throw ImportError(ElementText(e) + ": the deck's thickness " +
                              std::to_string(tPrinted) + " differs from the slab's " +
                              std::to_string(t) + " in the project");
        Pair& p = pairs[k];
        p.xy = {(ca[0] + cb[0]) / 2.0, (ca[1] + cb[1]) / 2.0};
        const bool aIsLow = dz > 0.0;
        p.sLow = d.stress[aIsLow ? a : b];
        p.sUp = d.stress[aIsLow ? b : a];
        p.eLow = d.strain[aIsLow ? a : b];
        p.eUp = d.strain[aIsLow ? b : a];
        if (IsShellOrientation(d.orientation) && !aIsLow)
            TurnShellAxesToGlobal(p);
        if (planeStress) {
            p.sLow = PlaneStressFromStrain(p.eLow, *planeStress);
            p.sUp = PlaneStressFromStrain(p.eUp, *planeStress);
        }
    }
    return pairs;
}

// A triangle's three module points: the single centroid pair's values at each point.
StrintgElement TrianglePoints(const ProjectMesh& mesh, std::size_t e,
                              const std::vector<Pair>& pairs, double tol, bool shell) {
    const auto& X = mesh.nodes;
    const auto& n = mesh.elements[e].nodes;
    const auto centroid = mesh.ElementCentroid(e);
    if (std::sqrt(Distance2(pairs[0].xy, centroid[0], centroid[1])) > tol)
        throw ImportError(ElementText(e) +
                          ": the printed integration points are not at "
                          "the element's centroid: the deck's numbering differs from the "
                          "project's (write it with `slabadapt export --inp`)");
    const StrintgPoint values = PairValues(pairs[0], mesh.Thickness(e), shell);
    // Area coordinates of the module's three points, in its order.
    static constexpr double L[3][3] = {
        {1.0 / 6, 1.0 / 6, 2.0 / 3}, {2.0 / 3, 1.0 / 6, 1.0 / 6}, {1.0 / 6, 2.0 / 3, 1.0 / 6}};
    StrintgElement points;
    for (const auto& l : L) {
        StrintgPoint p = values;
        for (std::size_t c = 0; c < 3; ++c)
            p.xyz[c] = l[0] * X[n[0]][c] + l[1] * X[n[1]][c] + l[2] * X[n[2]][c];
        points.push_back(p);
    }
    return points;
}

// A quadrilateral's four module points at its Gauss points, each taking the printed pair that
// lies there (matched by position, so CalculiX's own point order does not matter).
StrintgElement QuadPoints(const ProjectMesh& mesh, std::size_t e, const std::vector<Pair>& pairs,
                          double tol, bool shell) {
    const auto& X = mesh.nodes;
    const auto& n = mesh.elements[e].nodes;
    const double g = 1.0 / kSqrt3;
    static const double xi[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
    std::array<bool, 4> used{};
    StrintgElement points;
    for (const auto& q : xi) {
        const double s = q[0] * g, r = q[1] * g;
        const double N[4] = {0.25 * (1 - s) * (1 - r), 0.25 * (1 + s) * (1 - r),
                             0.25 * (1 + s) * (1 + r), 0.25 * (1 - s) * (1 + r)};
        std::array<double, 3> x{};
        for (std::size_t i = 0; i < 4; ++i)
            for (std::size_t c = 0; c < 3; ++c)
                x[c] += N[i] * X[n[i]][c];
        std::size_t best = 0;
        double bestD = std::numeric_limits<double>::infinity();
        for (std::size_t k = 0; k < 4; ++k) {
            const double dk = Distance2(pairs[k].xy, x[0], x[1]);
            if (dk < bestD) {
                bestD = dk;
                best = k;
            }
        }
        if (std::sqrt(bestD) > tol || used[best])
            throw ImportError(ElementText(e) +
                              ": the printed integration points do not "
                              "lie at the element's Gauss points: the deck's numbering "
                              "differs from the project's (write it with `slabadapt "
                              "export --inp`)");
        used[best] = true;
        StrintgPoint p = PairValues(pairs[best], mesh.Thickness(e), shell);
        p.xyz = x;
        points.push_back(p);
    }
    return points;
}

} // namespace

std::vector<StrintgElement> ConvertIncrement(const ProjectMesh& mesh, const DatIncrement& increment,
                                             ElementFamily family,
                                             const std::optional<IsotropicElastic>& planeStress) {
    if (!increment.elements.empty() &&
        static_cast<std::size_t>(increment.elements.rbegin()->first) > mesh.elements.size())
        throw ImportError("the results hold element " +
                          std::to_string(increment.elements.rbegin()->first) +
                          " but the project has " + std::to_string(mesh.elements.size()) +
                          " elements: was the deck written with `slabadapt export --inp`?");

    std::vector<StrintgElement> out(mesh.elements.size());
    for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
        const DatElement& d = PrintedResults(mesh, increment, e);
        const double h = std::sqrt(mesh.ElementArea(e));
        const auto centroid = mesh.ElementCentroid(e);
        const double tol = 1e-3 * h + 1e-6 * (std::abs(centroid[0]) + std::abs(centroid[1]));
        const bool shell = family == ElementFamily::Shell ||
                           (family == ElementFamily::Auto && IsShellOrientation(d.orientation));
        const std::vector<Pair> pairs = PairsThroughThickness(mesh, e, d, tol, planeStress);
        out[e] = mesh.elements[e].nodes.size() == 3 ? TrianglePoints(mesh, e, pairs, tol, shell)
                                                    : QuadPoints(mesh, e, pairs, tol, shell);
    }
    return out;
}

std::vector<WrittenCase> ImportCcx(const std::filesystem::path& project,
                                   const std::filesystem::path& datFile,
                                   const ImportOptions& options) {
    const ProjectMesh mesh = ReadProject(project);
    if (mesh.loadCases.empty())
        throw ImportError(ProjectFile(project, ".toml").string() +
                          ": no [[load_case]]; each CalculiX step needs one");

    std::optional<IsotropicElastic> material;
    if (options.stress == StressSource::PlaneStress) {
        if (options.young && options.poisson) {
            material = IsotropicElastic{*options.young, *options.poisson};
        } else {
            auto deck = datFile;
            deck.replace_extension(".inp");
            material = ReadDeckElastic(deck);
            if (options.young)
                material->young = *options.young;
            if (options.poisson)
                material->poisson = *options.poisson;
        }
        if (!(material->young > 0.0) || !(material->poisson > -1.0 && material->poisson < 0.5))
            throw ImportError("plane stress needs E > 0 and -1 < nu < 0.5");
    }

    const auto increments = ReadDat(datFile);
    auto sta = datFile;
    sta.replace_extension(".sta");
    const auto steps = SelectSteps(increments, ReadSta(sta));
    if (steps.empty())
        throw ImportError(datFile.string() + ": no *EL PRINT results of S, E and COORD found");
    if (steps.size() > mesh.loadCases.size())
        throw ImportError(datFile.string() + ": " + std::to_string(steps.size()) + " steps but " +
                          std::to_string(mesh.loadCases.size()) + " load cases in " +
                          ProjectFile(project, ".toml").string() +
                          "; step k goes to the k-th load case in ascending index");

    std::vector<WrittenCase> written;
    for (std::size_t k = 0; k < steps.size(); ++k) {
        const DatIncrement& inc = *steps[k];
        std::vector<StrintgElement> table;
        try {
            table = ConvertIncrement(mesh, inc, options.family, material);
        } catch (const ImportError& e) {
            throw ImportError(datFile.string() + ", step " + std::to_string(k + 1) + ": " +
                              e.what());
        }
        WrittenCase wc;
        wc.step = static_cast<int>(k + 1);
        wc.time = inc.time;
        wc.loadCase = mesh.loadCases[k];
        wc.file = StrintgFileName(project, wc.loadCase.index);
        std::ostringstream description;
        description << "CalculiX step " << wc.step << " (time " << inc.time << ") -> load case "
                    << wc.loadCase.id << " index " << wc.loadCase.index
                    << "; per unit width; stresses "
                    << (material ? "recomputed as plane stress" : "as printed");
        WriteStrintg(wc.file, table, "slabadapt import-ccx " + datFile.filename().string(),
                     description.str());
        written.push_back(std::move(wc));
    }
    return written;
}

} // namespace slabadapt::ccx
