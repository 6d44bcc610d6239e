"""The expected result of a call and the expected requests, from the model of the gripper."""

from typing import Any, Callable, NamedTuple

from gripper import ENABLE, GRIP, HOLDFAST, PRESET, REFERENCE
from settings import NOTHING_TO_SEND, SETTINGS
from tests.integration.harness.methods import METHOD, byte_list

# The two bytes of PDOUT after each method.
PDOUT = {
    "Grip": lambda first, _, number: [first & ~REFERENCE | GRIP | ENABLE, number & 0xFF],
    "Release": lambda first, _, number: [first & ~(REFERENCE | GRIP) | ENABLE, number & 0xFF],
    "Disable": lambda first, second: [first & ~ENABLE, second],
    "Home": lambda first, second: [first | REFERENCE | ENABLE, second],
    "Reference": lambda first, second: [first | REFERENCE | ENABLE, second],
    "Holdfast": lambda first, second, on: [first & ~HOLDFAST | (HOLDFAST if on else 0), second],
    "SetLEDPreset": lambda first, second, preset: [first & ~PRESET | preset << 5 & PRESET, second],
}


# The XML-RPC library writes doubles with 16 digits, the last of which is not exact.
ROUNDING = 1e-9


def is_position(phase, answer):
    position = round(answer * 100)
    return abs(position / 100 - answer) < ROUNDING and phase.has_position(position)


def is_excerpt(phase, answer):
    position = int.from_bytes([answer & 0xFF, answer >> 8 & 0xFF], "big", signed=True)
    last = answer >> 16
    flags = tuple(bool(last >> bit & 1) for bit in (4, 5, 6, 7))
    return phase.has_position(position) and phase.state == last & 0xF and phase.flags == flags


# Whether a method may return this value during a phase.
PROCESS_DATA = {
    "GetPos": is_position,
    "GetState": lambda phase, answer: phase.state == answer,
    "GetFault": lambda phase, answer: phase.flags[0] == answer,
    "GetTempFault": lambda phase, answer: phase.flags[1] == answer,
    "GetTempWarn": lambda phase, answer: phase.flags[2] == answer,
    "GetMaintenance": lambda phase, answer: phase.flags[3] == answer,
    "GetPDINExcerpt": is_excerpt,
}

CONSTANTS = {"UpdatePDIN": 3, "GetGripperInterface": 0}


def nothing():
    pass


class Expectation(NamedTuple):
    """What a call returns, the lines that the master receives, and the effect on the model."""

    answer: Any  # None if the process data decide
    lines: tuple = ()
    effect: Callable[[], None] = nothing

    def is_met_by(self, answer):
        if isinstance(answer, float):
            return abs(answer - self.answer) < ROUNDING
        return answer == self.answer

    def first_key(self):
        return key_of(self.lines[0]) if self.lines else None


def expectation(gripper, method, *arguments):
    """What is expected of a call; `arguments` are those after the device string."""
    check = METHOD[method].check
    check_request = ("DEVINFO?",) if check else ()
    if check not in gripper.checks:
        return Expectation(METHOD[method].fallback, check_request)
    if method in CONSTANTS:
        return Expectation(CONSTANTS[method])
    if method in PROCESS_DATA:
        return Expectation(None)
    if method == "StoreRemanent":
        return Expectation(0, ("PARAM[2][0]=[e0]",))
    if method in PDOUT:
        pdout = PDOUT[method](*gripper.pdout, *arguments)
        return Expectation(0, (*check_request, f"PDOUT={byte_list(pdout)}"),
                           lambda: gripper.assign_pdout(pdout))
    if method.startswith("Get"):
        return reading(gripper, check_request, SETTINGS[method.removeprefix("Get")], *arguments)
    return writing(gripper, check_request, SETTINGS[method.removeprefix("Set")], *arguments)


def reading(gripper, check_request, setting, number=0):
    index, subindex = key = setting.key(number)
    return Expectation(setting.codec.decode(gripper.read(key)),
                       (*check_request, f"PARAM[{index}][{subindex}]?"))


def writing(gripper, check_request, setting, *arguments):
    *number, value = arguments
    if value != value:
        return Expectation(NOTHING_TO_SEND, check_request)
    index, subindex = key = setting.key(*number or [0])
    data = setting.codec.encode(value)
    return Expectation(gripper.code_of_writing(key, data),
                       (*check_request, f"PARAM[{index}][{subindex}]={byte_list(data)}"),
                       lambda: gripper.write(key, data))


def written_key(method, arguments):
    """The parameter that a call writes, if any."""
    setting = method.startswith("Set") and SETTINGS.get(method.removeprefix("Set"))
    return setting.key(arguments[0]) if setting else None


def key_of(line):
    """The key of the master's replies to a request line."""
    return line.partition("=")[0].removesuffix("?")
