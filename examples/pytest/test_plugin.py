"""Tries examples/plugin.c:

    pytest --plugin ./plugin examples/pytest
"""

import pytest

from desk import Error, Mistake, Outcome

ETH0 = '/interfaces/interface[name="eth0"]'


@pytest.fixture
def interfaces(desk):
    desk.wait_active("interfaces")
    yield desk
    desk.run("stop", "plugin")  # it outlives its daemons, so that the desk would wait for a while


def test_takes_an_mtu(interfaces):
    assert interfaces.set(ETH0, "<mtu>9000</mtu>").ok
    assert interfaces.pulled == ["/interfaces/interface[name=eth0]"] * 2  # before and after
    interfaces.expect("not", "pulled", "/interfaces/interface/address")
    interfaces.wait_output("mtu none -> 9000")


def test_refuses_an_address_that_is_none(interfaces):
    assert interfaces.set(ETH0, "<mtu>1500</mtu>").ok
    outcome = interfaces.set(ETH0, "<mtu>1400</mtu><address>192.0.2.300</address>")
    assert outcome == Error(22, "That is no address.")
    assert outcome.shown.endswith("mod|rollback: ok")
    assert interfaces.show(f"{ETH0}/mtu") == "<mtu>1500</mtu>"


def test_counts_changes_until_they_are_reset(interfaces):
    assert interfaces.set(ETH0, "<mtu>1400</mtu>").ok
    assert interfaces.delete(ETH0).ok
    assert interfaces.status("/interfaces/state").data == "<state><changes>2</changes></state>"
    assert interfaces.operate("/interfaces/reset") == Outcome("ok", data="<was>2</was>")


def test_registers_again_with_the_next_daemon(interfaces):
    interfaces.run("restart", 10)
    interfaces.wait_active("interfaces")


def test_hears_nothing_of_others(interfaces):
    assert interfaces.set("/system/hostname", "desk").verdict == "unheard"


def test_says_what_is_wrong_with_a_test(desk):
    with pytest.raises(AssertionError, match="expected active nobody, got nothing within 1 ms"):
        desk.run("wait", "active", "nobody", 1)
    with pytest.raises(Mistake, match='there is no command "fly"'):
        desk.run("fly")
    assert repr(desk.set("/a", "1")) == "<unheard (no active plugin is concerned)>"
