"""What the application must do, with the fixture of kivo_dev.py."""

import os

import pytest

APP = os.environ["APP"]


def test_the_user_and_the_device_token_arrive(kivo_dev):
    run = kivo_dev(APP)
    assert run.status == 0, run.output
    assert '"deviceToken":"push-token"' in run.to("user/update-device-token")[0]["request"]["body"]
    assert run.violations == []


def test_a_refused_token_is_renewed(kivo_dev):
    run = kivo_dev(APP, faults=["user/update-device-token:401:times=1"])
    statuses = [each["status"] for each in run.to("user/update-device-token")]
    assert statuses == [401, 200]
    assert run.totals["refreshes"] == 1


@pytest.mark.parametrize("fault", ["hang", "delay=1m", "drip=1s"])
def test_it_survives_a_backend_that_is_too_slow(kivo_dev, fault):
    run = kivo_dev(APP, faults=[f"user/update-device-token:{fault}"])
    assert run.status == 0
    assert "Code=-1001" in run.output
