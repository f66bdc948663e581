"""Meridian from Python: the library's tasks on numpy arrays.

Vertices go in as (N, 3) arrays (converted to float32) and results come out
as float32 arrays of the same form. A failure the library reports raises
MeridianError carrying its message. Every engine class (HeadSwap, the
tangent-frame engines, EyeballFit, the aligners, Blendshapes, RgbdSelector,
Exporter) is a handle of the modern interface (libmeridian_api): each owns
its engine, and close() or a `with` block frees it alone. The debug head
readers ask the library for the vertex count before reading.

The library is found through MERIDIAN_LIBRARY (a file path), then beside
this package, then where `cmake --install` put it, then on the system's
library path.
"""
from ._engine import TEMPLATE_VERTICES, MeridianError, release_all
from ._library import library_path
from .blendshapes import SHAPE_NAMES, Blendshapes
from .debug import read_head_obj, read_head_ply
from .export import Exporter, export_glb
from .eyes import EyeballAligner, EyeballFit, EyelashAligner, EyePoses
from .headswap import HeadSwap
from .rgbd import FinalChoice, Intake, RgbdSelector
from .strict import asset_parts, check_model, read_head
from .tangent_frames import FixedTangentFrames, GeneralTangentFrames, TangentFrames

__all__ = [
    "TEMPLATE_VERTICES", "MeridianError", "release_all", "library_path", "HeadSwap",
    "FixedTangentFrames", "GeneralTangentFrames", "TangentFrames", "EyeballFit", "EyePoses",
    "EyeballAligner", "EyelashAligner", "Blendshapes", "SHAPE_NAMES", "RgbdSelector", "Intake",
    "FinalChoice", "read_head_ply", "read_head_obj", "Exporter", "export_glb", "read_head",
    "check_model", "asset_parts",
]
