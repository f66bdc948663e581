"""Dynamic blendshapes: six shapes of a head from a PCA face model."""
import os

import numpy as np

from . import _library
from ._engine import TEMPLATE_VERTICES, float_pointer, head_planar
from ._modern import Handle

SHAPE_NAMES = ("neutral", "gill_left", "gill_right", "nose", "ear_left", "ear_right")

# The data files under model_dir + "/BS/" in the order the library reads
# them, with the shape each must hold (rows, columns of doubles).
DATA_FILES = (
    ("kp_86_h_r_1_c_86.bin", 1, 86),
    ("tri_h_used_r_3_c_19394.bin", 3, 19394),
    ("tri_next_h_r_3_c_36958.bin", 3, 36958),
    ("tri_next_r_3_c_40832.bin", 3, 40832),
    ("vertex_h_used_r_1_c_9519.bin", 1, 9519),
    ("zf_all_face_V9_500_mu_r_55554_c_1.bin", 55554, 1),
    ("zf_all_face_V9_500_pcev_r_55554_c_500.bin", 55554, 500),
    ("zf_all_face_V9_500_sigma_r_500_c_1.bin", 500, 1),
    ("vertex_tavi_wh_r_3_c_20481.bin", 3, 20481),
    ("vertex_std_male_wh_r_3_c_20481.bin", 3, 20481),
    ("vertex_next_pca_m_r_3_c_20481.bin", 3, 20481),
    ("vertex_next_pca_f_r_3_c_20481.bin", 3, 20481),
    ("idx_em_r_1_c_1337.bin", 1, 1337),
    ("idx_em_need_update_r_1_c_629.bin", 1, 629),
    ("idx_em_in_face_r_1_c_629.bin", 1, 629),
    ("diff_from_face_to_esle_r_3_c_629.bin", 3, 629),
    ("idx_in_face_used_r_1_c_237.bin", 1, 237),
    ("up_r_1_c_18518.bin", 1, 18518),
    ("b4_mouth_h_idx_r_1_c_3450.bin", 1, 3450),
    ("b4_idx_backhead_r_1_c_366.bin", 1, 366),
    ("b4_idx_contout_r_1_c_1404.bin", 1, 1404),
    ("b4_idx_fix_face_part_r_1_c_8300.bin", 1, 8300),
    ("b4_shoulder_idx_r_1_c_1019.bin", 1, 1019),
    ("b4_weight_in_r_3_c_1404.bin", 3, 1404),
    ("ue_idx_next_2_ue_r_1_c_20864.bin", 1, 20864),
    ("vertex_left_r_1_c_10102.bin", 1, 10102),
    ("vertex_right_r_1_c_10102.bin", 1, 10102),
    # Per region: every vertex, the border vertices, the border weights.
    ("mask/gill_left/idx_all_r_1_c_2911.bin", 1, 2911),
    ("mask/gill_left/idx_fix_r_1_c_789.bin", 1, 789),
    ("mask/gill_left/weight_in3_r_3_c_789.bin", 3, 789),
    ("mask/gill_right/idx_all_r_1_c_2966.bin", 1, 2966),
    ("mask/gill_right/idx_fix_r_1_c_766.bin", 1, 766),
    ("mask/gill_right/weight_in3_r_3_c_766.bin", 3, 766),
    ("mask/nose/idx_all_r_1_c_2901.bin", 1, 2901),
    ("mask/nose/idx_fix_r_1_c_657.bin", 1, 657),
    ("mask/nose/weight_in3_r_3_c_657.bin", 3, 657),
    ("mask/ear_left/idx_all_r_1_c_2319.bin", 1, 2319),
    ("mask/ear_left/idx_fix_r_1_c_106.bin", 1, 106),
    ("mask/ear_left/weight_in3_r_3_c_106.bin", 3, 106),
    ("mask/ear_right/idx_all_r_1_c_2322.bin", 1, 2322),
    ("mask/ear_right/idx_fix_r_1_c_104.bin", 1, 104),
    ("mask/ear_right/weight_in3_r_3_c_104.bin", 3, 104),
)


def heads_planar(heads):
    """K heads as (K, 20481, 3) vertices -> contiguous planar float32
    (K, 3, 20481), K at least 1."""
    vertices = np.asarray(heads, dtype=np.float32)
    if vertices.ndim != 3 or vertices.shape[1:] != (TEMPLATE_VERTICES, 3) or not len(vertices):
        raise ValueError(f"heads have shape (K, {TEMPLATE_VERTICES}, 3) with K >= 1, "
                         f"got {vertices.shape}")
    return np.ascontiguousarray(vertices.transpose(0, 2, 1))


class Blendshapes(Handle):
    """The blendshape engine, from model_dir + "/BS/" (about 280 MB in memory
    for the full face model). A missing, short or refused file raises
    MeridianError naming it.

    threads: how many threads one shapes() call spreads its five regions
    over; 1 for a batch worker, None for the processor count (at most 5).
    The results are the same bits for any number.
    """

    _kind = "blendshapes"

    def __init__(self, model_dir, threads=None):
        super().__init__("meridian_blendshapes_open", os.fsencode(os.fspath(model_dir)))
        if threads is not None:
            if threads < 1:
                raise ValueError(f"threads is at least 1, got {threads}")
            self._check(self._api("set_thread_count")(self._handle, threads), "threads")

    def shapes(self, head):
        """The six shapes of a (20481, 3) head: (6, 20481, 3) float32, in the
        order of SHAPE_NAMES (shape 0 is the head itself)."""
        planar = head_planar(head)
        out = np.empty((len(SHAPE_NAMES), 3, TEMPLATE_VERTICES), dtype=np.float32)
        with _library.lock:
            self._require_open()
            self._check(self._api("run")(self._handle, float_pointer(planar), planar.size,
                                         float_pointer(out), out.size), "shapes")
        return np.ascontiguousarray(out.transpose(0, 2, 1))

    def shapes_batch(self, heads):
        """The six shapes of each of K heads, (K, 20481, 3), in one call that
        reads the model's basis once for all of them: (K, 6, 20481, 3)
        float32, head k's the same bits shapes() gives for it alone."""
        planar = heads_planar(heads)
        count = planar.shape[0]
        out = np.empty((count, len(SHAPE_NAMES), 3, TEMPLATE_VERTICES), dtype=np.float32)
        with _library.lock:
            self._require_open()
            self._check(self._api("run_batch")(self._handle, float_pointer(planar), planar.size,
                                               count, float_pointer(out), out.size),
                        "shapes_batch")
        return np.ascontiguousarray(out.transpose(0, 1, 3, 2))
