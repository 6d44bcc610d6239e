"""Model of a simulated gripper: its expected behaviour after the requests so far."""

import zlib
from typing import NamedTuple

from settings import BAD_LENGTH, NO_SUCH_PARAMETER, SETTINGS

# State codes of the simulated grippers.
OFF, NEEDS_REFERENCE, REFERENCING, RELEASING, RELEASED = range(5)
GRIPPING, HOLDING, NO_PART, READY = range(5, 9)
FAULT = 15
STATE_NAMES = {OFF: "off", NEEDS_REFERENCE: "reference run needed", REFERENCING: "reference run",
               RELEASING: "releasing", RELEASED: "released", GRIPPING: "gripping",
               HOLDING: "holding a part", NO_PART: "no part", READY: "ready", FAULT: "fault"}

# PDOUT, first byte.
GRIP, ENABLE, REFERENCE, HOLDFAST, PRESET = 0x01, 0x02, 0x04, 0x10, 0xE0

STROKES = {"TLM": 2000, "HVA": 3000, "MZD-S": 2400, "MZD-L": 4800}  # hundredths of a millimetre
READ_ONLY = {(3, 4), (16, 0), (18, 0), (19, 0), (21, 0)}
FAULTS = ("fault", "temp-fault", "temp-warn", "maintenance")


class Move(NamedTuple):
    """A motion of the fingers, or none if they are at the target."""

    target: int
    state_during: int
    end_state: int


class Phase:
    """Process data that are possible for a while: positions from `near` to `far`, one state."""

    def __init__(self, near, far, state, flags):
        self.near, self.far, self.state, self.flags = near, far, state, flags

    def has_position(self, position):
        return min(self.near, self.far) <= position <= max(self.near, self.far)

    def __repr__(self):
        return f"{self.near / 100:g}..{self.far / 100:g} state {self.state} flags {self.flags}"


class Gripper:
    """A model of one simulated gripper. Positions and widths in hundredths of a millimetre.

    It does not know the time. After a change, process data may be those from before it, then those
    of the motion, then those of its end; never those of an earlier phase again.
    """

    def __init__(self, number, state):
        """`state` is that of gripper `number` in the simulator, which must not be moving."""
        self.number = number
        self.model = state["model"]
        self.device = f"{self.model} SN:{100001 + number}"
        self.checks = {"TLM": ("",), "HVA": ("", "HVA")}.get(self.model, ("", "HVA", "MZD"))
        self.stroke = STROKES[self.model]
        self.parameters = parameters_of(state)
        self.pdout = list(state["pdout"])
        self.position = round(state["position"] * 100)
        self.state = state["state"]
        self.flags = dict.fromkeys(FAULTS, False)
        self.part = None
        self.referenced = self.model == "TLM"
        self.reference_done = False
        self.tripped = False
        self.phases = [self._resting_phase()]

    # Settings

    def read(self, key):
        """The bytes of a parameter; none if it does not exist."""
        return self.checksum() if key == (3, 4) else self.parameters.get(key, [])

    def code_of_writing(self, key, data):
        """The master's status for an assignment."""
        if key not in self.parameters:
            return NO_SUCH_PARAMETER
        return 0 if len(data) == len(self.parameters[key]) else BAD_LENGTH

    def write(self, key, data):
        if self.code_of_writing(key, data) == 0:
            self.parameters[key] = data

    def checksum(self):
        written = b"".join(
            bytes([*index.to_bytes(2, "big"), subindex, len(data), *data])
            for (index, subindex), data in sorted(self.parameters.items()))
        return list(zlib.crc32(written).to_bytes(4, "little"))

    def motion_depends_on(self, key):
        """Whether a new value of this parameter may change the motion under way."""
        limits = {SETTINGS[limit].key(self.pdout[1]) for limit in ("NoPartLimit", "ReleaseLimit")}
        return key in limits or key == (0x40, 3) and not self.is_at_rest()

    # Motion

    def assign_pdout(self, pdout):
        self.pdout = pdout
        self.tripped = self._stopped()
        self.reference_done &= bool(pdout[0] & REFERENCE and pdout[0] & ENABLE)
        self._react()

    def set_part(self, part):
        self.part = part
        self._react()

    def set_flag(self, name, on):
        self.flags[name] = on
        self.tripped |= self._stopped()
        self._react()

    def _stopped(self):
        return self.flags["fault"] or self.flags["temp-fault"]

    def _react(self):
        """The gripper must not be moving."""
        before = self.phases[-1]
        move = self._move()
        way = Phase(self.position, move.target, move.state_during, before.flags)
        self.position, self.state = move.target, move.end_state
        after = self._resting_phase()
        self.phases = [before, way, after] if way.near != way.far else [before, after]
        if vars(before) == vars(after):
            self.phases = [after]

    def _move(self):
        enabled = self.pdout[0] & ENABLE and not self.tripped
        if self._stopped():
            return self._stay(FAULT)
        if enabled and self.pdout[0] & REFERENCE and not self.reference_done:
            return self._reference_run()
        if not self.referenced:
            return self._stay(NEEDS_REFERENCE)
        if not enabled:
            return self._stay(HOLDING if self._holds_by_holdfast() else OFF)
        if self.pdout[0] & REFERENCE:
            return self._stay(READY)
        return self._grip() if self.pdout[0] & GRIP else self._release()

    def _stay(self, state):
        return Move(self.position, state, state)

    def _holds_by_holdfast(self):
        return ("MZD" in self.checks and self.pdout[0] & HOLDFAST and self.state == HOLDING
                and self.part == self.position)

    def _reference_run(self):
        inwards = self.parameters[0x40, 3] != [0]
        in_the_way = inwards and self.part is not None and self.position >= self.part
        self.reference_done = True
        self.referenced = not in_the_way
        target = self.part if in_the_way else 0 if inwards else self.stroke
        return Move(target, REFERENCING, NEEDS_REFERENCE if in_the_way else READY)

    def _grip(self):
        limit = self._limit("NoPartLimit")
        if limit is None:
            return self._stay(READY)
        if self.part is not None and self.position >= self.part >= limit:
            return Move(self.part, GRIPPING, HOLDING)
        return Move(min(limit, self.position), GRIPPING, NO_PART)

    def _release(self):
        limit = self._limit("ReleaseLimit")
        if limit is None:
            return self._stay(READY)
        return Move(limit, RELEASING, RELEASED)

    def _limit(self, name):
        data = self.parameters.get(SETTINGS[name].key(self.pdout[1]), [])
        if len(data) != 2:
            return None
        return max(0, min(self.stroke, int.from_bytes(data, "big", signed=True)))

    # Process data

    def _resting_phase(self):
        return Phase(self.position, self.position, self.state, tuple(self.flags.values()))

    def is_at_rest(self):
        """Whether process data from the end of the last motion have been read."""
        return len(self.phases) == 1

    def allows(self, matches):
        """Whether a phase that is possible now matches; earlier phases are then over."""
        for at, phase in enumerate(self.phases):
            if matches(phase):
                del self.phases[:at]
                return True
        return False

    def record_position(self, position):
        """Records a position: fingers do not move back."""
        self.phases[0].near = position

    # Comparison

    def differences(self, state):
        """Where the simulator's `state` differs from this model: name, shown, expected."""
        position = round(state["position"] * 100)
        shown = parameters_of(state)
        seen = {
            "parameters": items_not_in(self.parameters, shown),
            "checksum": state["parameters"]["3/4"],
            "PDOUT": state["pdout"],
            "LED preset": state["leds"]["preset"],
            "LEDs": state["leds"]["leds"],
            "faults": state["faults"],
            "position and state": (position, state["state"]),
        }
        expected = {
            "parameters": items_not_in(shown, self.parameters),
            "checksum": self.checksum(),
            "PDOUT": self.pdout,
            "LED preset": self.pdout[0] >> 5,
            "LEDs": self._leds(),
            "faults": self.flags,
            "position and state": self._possible(position, state["state"]),
        }
        return [(name, seen[name], expected[name])
                for name in seen if seen[name] != expected[name]]

    def _possible(self, position, state):
        """Position and state if they are possible, otherwise the expected ones."""
        if any(phase.has_position(position) and phase.state == state for phase in self.phases):
            return position, state
        return self.position, self.state

    def _leds(self):
        if "MZD" not in self.checks:
            return []
        return [[self.parameters[index, subindex][0] for subindex in (1, 2, 3)]
                for index in range(0x80, 0x88)]


def parameters_of(state):
    """The writable parameters by index and subindex."""
    shown = {tuple(map(int, key.split("/"))): data for key, data in state["parameters"].items()}
    return {key: data for key, data in shown.items() if key not in READ_ONLY}


def items_not_in(other, one):
    return {key: value for key, value in one.items() if other.get(key) != value}
