"""Laser-line triangulation: from range images to calibrated points and height maps.

    import planex

    model = planex.Model.from_file("camera.json")
    sensor = planex.SensorTraits.full(model)
    points = planex.calibrate(model, scan, sensor)      # scan: profiles x columns, uint16
    heights = planex.height_map(model, scan, sensor, mode="highest")
    heights.to_xarray().sel(x=slice(-10, 10)).mean("y")

Arrays are NumPy's and are used where they lie. Models and records are values.
"""

from planex.errors import DocumentError, Error, ImageError
from planex.estimation import (
    Estimation,
    Finding,
    MapUncertainty,
    PlaceCovariance,
    PlannedScan,
    PosePlan,
    ScanFit,
    Target,
    TargetStretch,
    estimate,
    estimate_from_scans,
    plan_scans,
)
from planex.files import ImageFile, Sidecar, read_image, read_sidecar, write_points
from planex.functions import (
    AlignedPoints,
    Difference,
    Points,
    align,
    bounds,
    calibrate,
    diff,
    height_map,
    intensity_limits,
    map_box,
    map_points,
    map_rectangle,
    rectify,
    thread_limit,
)
from planex.heights import HeightMap
from planex.lines import LineImage, extract_lines, read_frames
from planex.model import Fault, Model, Region, SkewMode, State
from planex.records import Bounds, Grid, Rectangle, SensorTraits, Splat

__all__ = [
    "AlignedPoints",
    "Bounds",
    "Difference",
    "DocumentError",
    "Error",
    "Estimation",
    "Fault",
    "Finding",
    "Grid",
    "HeightMap",
    "ImageError",
    "ImageFile",
    "LineImage",
    "MapUncertainty",
    "Model",
    "PlaceCovariance",
    "PlannedScan",
    "Points",
    "PosePlan",
    "Rectangle",
    "Region",
    "ScanFit",
    "SensorTraits",
    "Sidecar",
    "SkewMode",
    "Splat",
    "State",
    "Target",
    "TargetStretch",
    "align",
    "bounds",
    "calibrate",
    "diff",
    "estimate",
    "estimate_from_scans",
    "extract_lines",
    "height_map",
    "intensity_limits",
    "map_box",
    "map_points",
    "map_rectangle",
    "plan_scans",
    "read_frames",
    "read_image",
    "read_sidecar",
    "rectify",
    "thread_limit",
    "write_points",
]
