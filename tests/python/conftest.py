"""The model of the examples, and a scan that it could have taken."""

import pathlib

import hypothesis
import numpy
import pytest

import planex

hypothesis.settings.register_profile("same", database=None, derandomize=True, deadline=None)
hypothesis.settings.load_profile("same")
ROOT = pathlib.Path(__file__).parents[2]


def estimates():
    """Whether the package was built with estimation: it refuses such points all the same."""
    try:
        planex.estimate([], [], [], [], sensor_size=(9, 9))
    except planex.Error as error:
        return "without estimation" not in str(error)


ESTIMATES = estimates()


@pytest.fixture(scope="session")
def model():
    return planex.Model.from_file(ROOT / "examples/models/simulated_camera.json")


@pytest.fixture(scope="session")
def sensor(model):
    return planex.SensorTraits.full(model)


@pytest.fixture(scope="session")
def scan():
    """Two blocks of height_map(), a tenth of it without measurement."""
    random = numpy.random.default_rng(7)
    values = random.integers(1, 16000, (300, 2560), dtype=numpy.uint16)
    values[random.random(values.shape) < 0.1] = 0
    return values
