// Geometry of the demo eye model: the template eyeball, the eyeballs and
// eyelashes at rest in the demo head's sockets, and the links between head
// vertices and mesh points that the aligners fit with.
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include <Eigen/Geometry>

#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "demo/float_round.h"

namespace meridian::demo {

namespace {

using detail::roundToFloat;
using Eigen::Vector3d;

constexpr double kPi = 3.14159265358979323846;

// Template eyeball: a sclera sphere, a cornea cap that bulges in front of it
// and a flat iris disc behind the cornea, as rings of kSegments vertices
// around the gaze axis (-y).
constexpr int kSegments = 32;
constexpr int kScleraRings = 8;
constexpr int kCorneaRings = 12;
constexpr int kIrisRings = 4;
constexpr double kLimbusRadius = 1.6;  // from the gaze axis
constexpr double kCorneaBulge = 0.3;   // apex in front of the sphere
constexpr double kPupilRadius = 0.6;
constexpr double kIrisDepth = 0.1;  // behind the limbus plane

// Vertex ids. The sphere list of the eyeball fit names exactly the sclera
// rings (0..95, 610..769) and the back pole (608); vertex 609 is the last
// iris vertex, numbered after the pole.
int scleraId(int ring, int segment) {
    const int k = ring * kSegments + segment;
    return k < 96 ? k : 610 + (k - 96);
}
int corneaId(int ring, int segment) {
    return 96 + ring * kSegments + segment;
}
int irisId(int ring, int segment) {
    const int k = ring * kSegments + segment;
    return k < 127 ? 481 + k : 609;
}
constexpr int kBackPole = 608;

// Eyelashes: a fringe of kLashRows vertex rows from the root on the upper
// lid, bending forward and curling away from the eye.
constexpr int kLashRows = 4;
constexpr double kLashLength = 1.4;
constexpr double kLashCurl = 0.9;
constexpr double kLashColumnStep = 8.0 * kPi / 180.0;
constexpr double kLashLift = 0.5;         // blendshape lift at the middle of the lid
constexpr double kOuterLoopRadius = 2.0;  // ring vertices further from the axis form the rim

// Side fits weigh ring vertices by their distance from the socket axis,
// relative to the socket cap's.
constexpr double kSocketCapRadius = 2.4;

/// Point at `along` on the gaze axis (-y) and `radial` from it, at angle
/// `azimuth` from +x toward +z.
Vector3d eyePoint(double along, double radial, double azimuth) {
    return {radial * std::cos(azimuth), -along, radial * std::sin(azimuth)};
}

double segmentAzimuth(int segment) {
    return 2.0 * kPi * segment / kSegments;
}

void addQuad(std::vector<std::array<int, 3>>& faces, int a, int b, int c, int d) {
    faces.push_back({a, b, c});
    faces.push_back({a, c, d});
}

/// Faces with every normal turned to point along `outward(centroid)`.
template <typename Outward>
Eigen::Matrix3Xi orientedFaces(const std::vector<std::array<int, 3>>& faces,
                               const Eigen::Matrix3Xd& v, Outward&& outward) {
    Eigen::Matrix3Xi result(3, static_cast<Eigen::Index>(faces.size()));
    for (size_t f = 0; f < faces.size(); ++f) {
        auto [a, b, c] = faces[f];
        const Vector3d normal = (v.col(b) - v.col(a)).cross(v.col(c) - v.col(a));
        const Vector3d centroid = (v.col(a) + v.col(b) + v.col(c)) / 3.0;
        if (normal.dot(outward(centroid)) < 0) std::swap(b, c);
        result.col(static_cast<Eigen::Index>(f)) << a, b, c;
    }
    return result;
}

/// The template eyeball and the faces of its sclera (for the links).
EyeMesh buildEyeball(std::vector<int>& scleraFaces) {
    EyeMesh eye;
    eye.vertices.resize(3, kEyeballVertexCount);
    const double limbusPolar = std::asin(kLimbusRadius / kEyeballRadius);
    for (int ring = 0; ring < kScleraRings; ++ring) {
        const double t = static_cast<double>(ring) / kScleraRings;
        const double polar = limbusPolar + (kPi - limbusPolar) * t * t;  // dense at the front
        for (int s = 0; s < kSegments; ++s)
            eye.vertices.col(scleraId(ring, s)) =
                eyePoint(kEyeballRadius * std::cos(polar), kEyeballRadius * std::sin(polar),
                         segmentAzimuth(s));
    }
    eye.vertices.col(kBackPole) = eyePoint(-kEyeballRadius, 0.0, 0.0);

    // The cornea is a smaller sphere through the limbus circle.
    const double limbusAlong = kEyeballRadius * std::cos(limbusPolar);
    const double apex = kEyeballRadius + kCorneaBulge;
    const double corneaCentre =
        (apex * apex - kEyeballRadius * kEyeballRadius) / (2.0 * (apex - limbusAlong));
    const double corneaRadius = apex - corneaCentre;
    const double limbusAngle = std::atan2(kLimbusRadius, limbusAlong - corneaCentre);
    eye.vertices.col(kEyeballFrontVertex) = eyePoint(apex, 0.0, 0.0);
    for (int ring = 0; ring < kCorneaRings; ++ring) {
        const double angle = limbusAngle * (ring + 1) / (kCorneaRings + 1);
        for (int s = 0; s < kSegments; ++s)
            eye.vertices.col(corneaId(ring, s)) =
                eyePoint(corneaCentre + corneaRadius * std::cos(angle),
                         corneaRadius * std::sin(angle), segmentAzimuth(s));
    }
    const double irisOuter = 0.97 * kLimbusRadius;
    for (int ring = 0; ring < kIrisRings; ++ring) {
        const double radial = kPupilRadius + (irisOuter - kPupilRadius) * ring / (kIrisRings - 1);
        for (int s = 0; s < kSegments; ++s)
            eye.vertices.col(irisId(ring, s)) =
                eyePoint(limbusAlong - kIrisDepth, radial, segmentAzimuth(s));
    }
    for (Eigen::Index v = 0; v < eye.vertices.cols(); ++v)
        eye.vertices.col(v) = roundToFloat(Vector3d(eye.vertices.col(v)));

    std::vector<std::array<int, 3>> shell, iris;
    for (int s = 0; s < kSegments; ++s) {
        const int n = (s + 1) % kSegments;
        shell.push_back({kEyeballFrontVertex, corneaId(0, s), corneaId(0, n)});
        for (int ring = 0; ring + 1 < kCorneaRings; ++ring)
            addQuad(shell, corneaId(ring, s), corneaId(ring + 1, s), corneaId(ring + 1, n),
                    corneaId(ring, n));
        addQuad(shell, corneaId(kCorneaRings - 1, s), scleraId(0, s), scleraId(0, n),
                corneaId(kCorneaRings - 1, n));
    }
    const size_t firstSclera = shell.size();
    for (int s = 0; s < kSegments; ++s) {
        const int n = (s + 1) % kSegments;
        for (int ring = 0; ring + 1 < kScleraRings; ++ring)
            addQuad(shell, scleraId(ring, s), scleraId(ring + 1, s), scleraId(ring + 1, n),
                    scleraId(ring, n));
        shell.push_back({scleraId(kScleraRings - 1, s), kBackPole, scleraId(kScleraRings - 1, n)});
    }
    for (int s = 0; s < kSegments; ++s) {
        const int n = (s + 1) % kSegments;
        for (int ring = 0; ring + 1 < kIrisRings; ++ring)
            addQuad(iris, irisId(ring, s), irisId(ring + 1, s), irisId(ring + 1, n),
                    irisId(ring, n));
    }
    scleraFaces.clear();
    for (size_t f = firstSclera; f < shell.size(); ++f) scleraFaces.push_back(static_cast<int>(f));

    const Eigen::Matrix3Xi shellFaces =
        orientedFaces(shell, eye.vertices, [](const Vector3d& p) { return p; });
    const Eigen::Matrix3Xi irisFaces =
        orientedFaces(iris, eye.vertices, [](const Vector3d&) { return Vector3d(0, -1, 0); });
    eye.faces.resize(3, shellFaces.cols() + irisFaces.cols());
    eye.faces << shellFaces, irisFaces;

    // Seen from the front: the iris in the middle of the texture.
    eye.uvs.resize(2, kEyeballVertexCount);
    for (int v = 0; v < kEyeballVertexCount; ++v)
        eye.uvs.col(v) =
            roundToFloat(Eigen::Vector2d(0.5 + eye.vertices(0, v) / (2.2 * kEyeballRadius),
                                         0.5 + eye.vertices(2, v) / (2.2 * kEyeballRadius)));
    return eye;
}

/// Template ids from the front of the eye to the back: apex, cornea, iris,
/// sclera, back pole. The export order lists each eye this way.
std::vector<int> frontToBack() {
    std::vector<int> order = {kEyeballFrontVertex};
    for (int ring = 0; ring < kCorneaRings; ++ring)
        for (int s = 0; s < kSegments; ++s) order.push_back(corneaId(ring, s));
    for (int ring = 0; ring < kIrisRings; ++ring)
        for (int s = 0; s < kSegments; ++s) order.push_back(irisId(ring, s));
    for (int ring = 0; ring < kScleraRings; ++ring)
        for (int s = 0; s < kSegments; ++s) order.push_back(scleraId(ring, s));
    order.push_back(kBackPole);
    return order;
}

/// Meshes side by side in one: vertices, faces and uvs of `parts` in order.
EyeMesh concatenate(const std::vector<EyeMesh>& parts) {
    Eigen::Index vertices = 0, faces = 0;
    for (const EyeMesh& part : parts) vertices += part.vertices.cols(), faces += part.faces.cols();
    EyeMesh mesh;
    mesh.vertices.resize(3, vertices);
    mesh.uvs.resize(2, vertices);
    mesh.faces.resize(3, faces);
    Eigen::Index v = 0, f = 0;
    for (const EyeMesh& part : parts) {
        mesh.vertices.middleCols(v, part.vertices.cols()) = part.vertices;
        mesh.uvs.middleCols(v, part.uvs.cols()) = part.uvs;
        mesh.faces.middleCols(f, part.faces.cols()) = part.faces.array() + static_cast<int>(v);
        v += part.vertices.cols();
        f += part.faces.cols();
    }
    return mesh;
}

/// Where the ray from `origin` through `through` meets triangle (a, b, c):
/// false when it misses; else barycentric weights of the hit.
bool rayHit(const Vector3d& origin, const Vector3d& through, const Vector3d& a, const Vector3d& b,
            const Vector3d& c, std::array<double, 3>& weights) {
    const Vector3d direction = through - origin;
    const Vector3d e1 = b - a, e2 = c - a;
    const Vector3d p = direction.cross(e2);
    const double det = e1.dot(p);
    if (std::abs(det) < 1e-12) return false;
    const Vector3d s = origin - a;
    const double u = s.dot(p) / det;
    const Vector3d q = s.cross(e1);
    const double v = direction.dot(q) / det;
    const double t = e2.dot(q) / det;
    if (u < 0 || v < 0 || u + v > 1 || t <= 0) return false;
    weights = {1.0 - u - v, u, v};
    return true;
}

/// Socket of each aligner side: left is the second eye, right the first.
int socketOfSide(int side) {
    return side == 0 ? 1 : 0;
}
const std::array<int, kRingSize>& ringOfSocket(int socket) {
    return socket == 1 ? kRingA : kRingB;
}

/// Ring vertices of one side tied to the sclera of that side's eyeball,
/// where the ray from the socket centre through the vertex meets it. Ring
/// vertices in front of the cornea are left out.
std::vector<HeadLink> eyeballLinks(const EyeMesh& eyeballs, const std::vector<int>& scleraFaces,
                                   int side) {
    const Eigen::Matrix3Xd& head = demoHead().vertices;
    const SocketSphere& socket = socketSphere(socketOfSide(side));
    const int faceOffset = side * static_cast<int>(eyeballs.faces.cols() / 2);
    std::vector<HeadLink> links;
    for (int headVertex : ringOfSocket(socketOfSide(side))) {
        const Vector3d p = head.col(headVertex);
        for (int local : scleraFaces) {
            const int f = faceOffset + local;
            HeadLink link{headVertex, f, {}, {}, 0.0};
            for (int c = 0; c < 3; ++c) link.corners[c] = eyeballs.faces(c, f);
            if (!rayHit(socket.centre, p, eyeballs.vertices.col(link.corners[0]),
                        eyeballs.vertices.col(link.corners[1]),
                        eyeballs.vertices.col(link.corners[2]), link.weights))
                continue;
            link.weight =
                roundToFloat(std::hypot(p.x() - socket.centre.x(), p.z() - socket.centre.z()) /
                             kSocketCapRadius);
            links.push_back(link);
            break;
        }
    }
    return links;
}

struct LashRoot {
    double angle;    // about the socket axis, from +x toward +z
    double radial;   // distance from the socket axis
    int headVertex;  // -1 between ring vertices
};

/// Lash roots of one socket: the rim ring vertices above the eye, in order of
/// angle, with roots spread between them along the socket sphere.
std::vector<LashRoot> lashRoots(int socketIndex) {
    const Eigen::Matrix3Xd& head = demoHead().vertices;
    const SocketSphere& socket = socketSphere(socketIndex);
    std::vector<LashRoot> rim;
    for (int headVertex : ringOfSocket(socketIndex)) {
        const Vector3d d = head.col(headVertex) - socket.centre;
        const double angle = std::atan2(d.z(), d.x());
        const double radial = std::hypot(d.x(), d.z());
        if (radial > kOuterLoopRadius && angle > 0 && angle < kPi)
            rim.push_back({angle, radial, headVertex});
    }
    std::sort(rim.begin(), rim.end(),
              [](const LashRoot& a, const LashRoot& b) { return a.angle < b.angle; });
    if (rim.size() < 3) throw std::logic_error("demo eyes: too few rim vertices above an eye");
    std::vector<LashRoot> roots;
    for (size_t k = 0; k + 1 < rim.size(); ++k) {
        roots.push_back(rim[k]);
        const int steps =
            static_cast<int>(std::ceil((rim[k + 1].angle - rim[k].angle) / kLashColumnStep));
        for (int i = 1; i < steps; ++i) {
            const double t = static_cast<double>(i) / steps;
            roots.push_back({rim[k].angle + t * (rim[k + 1].angle - rim[k].angle),
                             rim[k].radial + t * (rim[k + 1].radial - rim[k].radial), -1});
        }
    }
    roots.push_back(rim.back());
    return roots;
}

/// One eyelash, column after column (root to tip), and its links.
EyeMesh buildLash(int side, Eigen::Matrix3Xd& lifted, std::vector<HeadLink>& links,
                  int vertexOffset) {
    const int socketIndex = socketOfSide(side);
    const SocketSphere& socket = socketSphere(socketIndex);
    const Eigen::Matrix3Xd& head = demoHead().vertices;
    const std::vector<LashRoot> roots = lashRoots(socketIndex);
    const int columns = static_cast<int>(roots.size());
    EyeMesh lash;
    lash.vertices.resize(3, columns * kLashRows);
    lash.uvs.resize(2, columns * kLashRows);
    lifted.resize(3, columns * kLashRows);
    links.clear();
    for (int col = 0; col < columns; ++col) {
        const LashRoot& r = roots[col];
        const Vector3d root =
            r.headVertex >= 0
                ? Vector3d(head.col(r.headVertex))
                : roundToFloat(Vector3d(
                      socket.centre +
                      Vector3d(r.radial * std::cos(r.angle),
                               -std::sqrt(socket.radius * socket.radius - r.radial * r.radial),
                               r.radial * std::sin(r.angle))));
        const Vector3d normal = (root - socket.centre).normalized();
        const Vector3d away(std::cos(r.angle), 0.0, std::sin(r.angle));
        const Vector3d curl = (away - away.dot(normal) * normal).normalized();
        const double length = kLashLength * (0.55 + 0.45 * std::sin(r.angle));
        for (int row = 0; row < kLashRows; ++row) {
            const int v = col * kLashRows + row;
            const double t = static_cast<double>(row) / (kLashRows - 1);
            const Vector3d p =
                row == 0 ? root
                         : roundToFloat(
                               Vector3d(root + length * (t * normal + kLashCurl * t * t * curl)));
            lash.vertices.col(v) = p;
            lash.uvs.col(v) << roundToFloat(static_cast<double>(col) / (columns - 1)),
                roundToFloat(t);
            // The lid opens: the middle of the lash rises most, its tips more
            // than its root.
            const double lift = kLashLift * std::sin(r.angle) * (1.0 + 0.6 * t);
            lifted.col(v) = roundToFloat(Vector3d(p + Vector3d(0.0, 0.0, lift)));
        }
        if (r.headVertex >= 0)
            links.push_back(
                {r.headVertex, -1, {vertexOffset + col * kLashRows, 0, 0}, {1, 0, 0}, 1.0});
    }
    std::vector<std::array<int, 3>> faces;
    for (int col = 0; col + 1 < columns; ++col)
        for (int row = 0; row + 1 < kLashRows; ++row) {
            const int v = col * kLashRows + row;
            addQuad(faces, v, v + kLashRows, v + kLashRows + 1, v + 1);
        }
    // The upper side of the fringe faces up.
    lash.faces =
        orientedFaces(faces, lash.vertices, [](const Vector3d&) { return Vector3d(0, 0, 1); });
    return lash;
}

DemoEyes buildEyes() {
    DemoEyes eyes;
    std::vector<int> scleraFaces;
    eyes.eyeball = buildEyeball(scleraFaces);

    std::vector<EyeMesh> placed;
    for (int side = 0; side < 2; ++side) {
        EyeMesh eye = eyes.eyeball;
        const Vector3d centre = socketSphere(socketOfSide(side)).centre;
        for (Eigen::Index v = 0; v < eye.vertices.cols(); ++v)
            eye.vertices.col(v) = roundToFloat(Vector3d(eye.vertices.col(v) + centre));
        placed.push_back(eye);
    }
    eyes.eyeballs = concatenate(placed);
    for (int side = 0; side < 2; ++side) {
        for (int v = 0; v < kEyeballVertexCount; ++v)
            eyes.eyeballSide[side].push_back(side * kEyeballVertexCount + v);
        eyes.eyeballLinks[side] = eyeballLinks(eyes.eyeballs, scleraFaces, side);
    }
    const std::vector<int> order = frontToBack();
    for (int side : {1, 0})
        for (int v : order) eyes.eyeballExport.push_back(side * kEyeballVertexCount + v);

    std::vector<EyeMesh> lashes(2);
    std::array<Eigen::Matrix3Xd, 2> lifted;
    int offset = 0;
    for (int side = 0; side < 2; ++side) {
        lashes[side] = buildLash(side, lifted[side], eyes.eyelashLinks[side], offset);
        for (Eigen::Index v = 0; v < lashes[side].vertices.cols(); ++v)
            eyes.eyelashSide[side].push_back(offset + static_cast<int>(v));
        offset += static_cast<int>(lashes[side].vertices.cols());
    }
    eyes.eyelashes = concatenate(lashes);
    eyes.eyelashBlendshape.resize(3, eyes.eyelashes.vertices.cols());
    eyes.eyelashBlendshape << lifted[0], lifted[1];
    // Export order: right lash, then left, each row after row.
    for (int side : {1, 0}) {
        const int first = eyes.eyelashSide[side].front();
        const int columns = static_cast<int>(eyes.eyelashSide[side].size()) / kLashRows;
        for (int row = 0; row < kLashRows; ++row)
            for (int col = 0; col < columns; ++col)
                eyes.eyelashExport.push_back(first + col * kLashRows + row);
    }
    return eyes;
}

}  // namespace

const DemoEyes& demoEyes() {
    static const DemoEyes eyes = buildEyes();
    return eyes;
}

}  // namespace meridian::demo
