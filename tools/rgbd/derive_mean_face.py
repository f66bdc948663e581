#!/usr/bin/python3
"""Regenerates src/rgbd/mean_face.cpp: the 3-D mean face of the 102 kept
landmarks that the head-pose fit of the frame selection uses.

    /usr/bin/python3 tools/rgbd/derive_mean_face.py \
        --provider build/lib/libcv_face.so \
        --face3d ../shared/realdata/face3d \
        --out src/rgbd/mean_face.cpp

Input: 3-D positions of the 68 predictor landmarks on 2,000 real faces
(x, y in image pixels with y down, z larger toward the camera). Steps:
  1. Take the near-frontal faces (|yaw| < 5 degrees); turn y up; remove
     each face's position and scale (unit RMS radius).
  2. Align them by generalised Procrustes (rotations), average, and turn the
     mean to the orientation of the plain average of the faces.
  3. Make it symmetric: turn it halfway toward its mirror image (x negated,
     left and right points swapped) and average the two, so it has no yaw
     or roll.
  4. Turn it about x by PITCH_CALIBRATION_DEG: the near-frontal faces of the
     data look slightly down on average, so an uncalibrated mean face reads
     level faces as looking up. The angle was found with
     `meridian_rgbd_eval` on the labelled photos (it prints the mean signed
     pitch error; the angle cancels it).
  5. Map the 68 points into the 106-point layout with the provider's own
     weights (so 2-D and 3-D points are interpolated alike) and drop the
     pupils 59, 60, 69, 70.
  6. Scale each axis linearly onto the template's fixed bounds and set the
     four fixed columns (the first three and the last) to their values.
"""
import argparse
import ctypes
import os
import sys

import numpy as np

PITCH_CALIBRATION_DEG = -8.5

BOUNDS_LOW = np.array([-68.1757, -56.5257, -27.0445])
BOUNDS_HIGH = np.array([67.3734, 68.1411, 62.8978])
FIXED_COLUMNS = {
    0: (-68.1757, 53.3108, -23.8053),
    1: (-67.8518, 42.6718, -22.8051),
    2: (-68.1146, 33.6623, -27.0445),
    101: (9.8368, -21.1083, 49.7104),
}
SKIPPED = (59, 60, 69, 70)

# Mirror partner of each of the 68 points.
MIRROR = (list(range(16, -1, -1)) + list(range(26, 16, -1)) + [27, 28, 29, 30] +
          [35, 34, 33, 32, 31] + [45, 44, 43, 42, 47, 46] + [39, 38, 37, 36, 41, 40] +
          [54, 53, 52, 51, 50, 49, 48, 59, 58, 57, 56, 55] + [64, 63, 62, 61, 60, 67, 66, 65])


def normalised(face):
    face = face - face.mean(axis=1, keepdims=True)
    return face / np.sqrt((face ** 2).sum() / face.shape[1])


def best_rotation(target, source):
    """Rotation R minimising |R source - target|."""
    u, _, vt = np.linalg.svd(target @ source.T)
    d = np.sign(np.linalg.det(u @ vt))
    return u @ np.diag([1.0, 1.0, d]) @ vt


def procrustes_mean(faces, rounds=10):
    mean = faces[0]
    for _ in range(rounds):
        aligned = [best_rotation(mean, f) @ f for f in faces]
        mean = normalised(np.mean(aligned, axis=0))
    return mean


def mirror(face):
    return face[:, MIRROR] * np.array([[-1.0], [1.0], [1.0]])


def half_turn(rotation):
    """The rotation about the same axis by half the angle."""
    angle = np.arccos(np.clip((np.trace(rotation) - 1.0) / 2.0, -1.0, 1.0))
    if angle < 1e-12:
        return np.eye(3)
    axis = np.array([rotation[2, 1] - rotation[1, 2], rotation[0, 2] - rotation[2, 0],
                     rotation[1, 0] - rotation[0, 1]]) / (2.0 * np.sin(angle))
    k = np.array([[0, -axis[2], axis[1]], [axis[2], 0, -axis[0]], [-axis[1], axis[0], 0]])
    h = angle / 2.0
    return np.eye(3) + np.sin(h) * k + (1.0 - np.cos(h)) * (k @ k)


def layout_weights(provider):
    library = ctypes.CDLL(provider)
    out = (ctypes.c_double * (106 * 68))()
    library.CvFaceLayoutWeights(out)
    return np.frombuffer(out, dtype=np.float64).reshape(106, 68).copy()


def derive(face3d_dir, provider, pitch_deg):
    points = np.load(os.path.join(face3d_dir, "aflw2000-3d-pts68.npy")).astype(np.float64)
    yaw = np.load(os.path.join(face3d_dir, "aflw2000-3d-yaw.npy"))
    frontal = points[np.abs(yaw) < 5]
    frontal[:, 1, :] *= -1.0  # y up
    faces = [normalised(f) for f in frontal]
    mean = procrustes_mean(faces)
    # Orient the sharper Procrustes mean like the plain average of the faces.
    mean = best_rotation(normalised(np.mean(faces, axis=0)), mean) @ mean
    # Symmetric: turn halfway toward the mirror image, then average with it.
    mean = half_turn(best_rotation(mirror(mean), mean)) @ mean
    mean = 0.5 * (mean + mirror(mean))
    a = np.radians(pitch_deg)
    about_x = np.array([[1, 0, 0], [0, np.cos(a), -np.sin(a)], [0, np.sin(a), np.cos(a)]])
    mean = about_x @ mean

    layout = (layout_weights(provider) @ mean.T).T  # 3 by 106
    kept = np.delete(layout, SKIPPED, axis=1)  # 3 by 102
    low, high = kept.min(axis=1), kept.max(axis=1)
    scaled = BOUNDS_LOW[:, None] + (kept - low[:, None]) * (
        (BOUNDS_HIGH - BOUNDS_LOW) / (high - low))[:, None]
    for column, value in FIXED_COLUMNS.items():
        moved = np.linalg.norm(scaled[:, column] - value)
        print(f"column {column}: fixed value is {moved:.2f} from the derived point",
              file=sys.stderr)
        scaled[:, column] = value
    return np.round(scaled, 4), len(frontal)


def cpp_source(face, sample_count, pitch_deg):
    lines = [
        "// Generated by tools/rgbd/derive_mean_face.py; do not edit. The 3-D mean face",
        f"// of the 102 kept landmarks, from {sample_count} near-frontal real faces,",
        f"// turned {pitch_deg:+.2f} degrees about x, scaled per axis onto the fixed bounds.",
        "#include \"rgbd/mean_face.h\"",
        "",
        "namespace kestrel::meridian {",
        "",
        "const std::array<double, 306>& meanFaceConstants() {",
        "    static const std::array<double, 306> kConstants = {",
    ]
    for row, name in enumerate("xyz"):
        lines.append(f"        // {name}")
        values = [f"{v:.4f}" for v in face[row]]
        for start in range(0, len(values), 8):
            lines.append("        " + ", ".join(values[start:start + 8]) + ",")
    lines += ["    };", "    return kConstants;", "}", "", "}  // namespace kestrel::meridian", ""]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--provider", required=True, help="built libcv_face.so")
    parser.add_argument("--face3d", required=True, help="folder of the 3-D landmark data")
    parser.add_argument("--out", required=True, help="C++ file to write")
    parser.add_argument("--pitch", type=float, default=PITCH_CALIBRATION_DEG,
                        help="turn about x in degrees (default: the calibrated value)")
    args = parser.parse_args()
    face, count = derive(args.face3d, args.provider, args.pitch)
    with open(args.out, "w") as out:
        out.write(cpp_source(face, count, args.pitch))
    print(f"wrote {args.out} from {count} faces", file=sys.stderr)


if __name__ == "__main__":
    main()
