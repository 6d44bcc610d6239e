"""The settings of a gripper: their methods, their parameters and their encoding."""

from typing import NamedTuple

NO_SUCH_PARAMETER, BAD_LENGTH = 3, 4  # codes of the simulated master
NOTHING_TO_SEND = 12  # status of the daemon


class Byte:
    @staticmethod
    def encode(value):
        return [value & 0xFF]

    @staticmethod
    def decode(data):
        return data[0] if len(data) == 1 else 0


class Flag:
    @staticmethod
    def encode(value):
        return [0xFF if value else 0]

    @staticmethod
    def decode(data):
        return Byte.decode(data) != 0


class Hundredths:
    """Signed, high byte first; adds 0.5 and truncates toward zero."""

    @staticmethod
    def encode(value):
        raw = int(max(-32768.0, min(32767.0, value * 100 + 0.5)))
        return list(raw.to_bytes(2, "big", signed=True))

    @staticmethod
    def decode(data):
        return int.from_bytes(data, "big", signed=True) / 100 if len(data) == 2 else 0.0


class Checksum:
    @staticmethod
    def decode(data):
        return int.from_bytes(data, "little", signed=True) if len(data) == 4 else 0


class Setting(NamedTuple):
    index: int
    subindex: int
    codec: type
    numbered: bool = False  # by parameter set or LED, whose number is added to `index`

    def key(self, number):
        """The parameter of a set or LED; methods use the low 8 bits of its number."""
        return (self.index + (number & 0xFF if self.numbered else 0), self.subindex)


# By the names of the methods without "Get" and "Set".
SETTINGS = {
    "NoPartLimit": Setting(0x60, 1, Hundredths, numbered=True),
    "ReleaseLimit": Setting(0x60, 2, Hundredths, numbered=True),
    "Force": Setting(0x60, 3, Byte, numbered=True),
    "OverrideGrip": Setting(0x40, 1, Byte),
    "OverrideRelease": Setting(0x40, 2, Byte),
    "ReferenceDirection": Setting(0x40, 3, Flag),
    "HomingDirection": Setting(0x40, 3, Flag),
    "ParameterChecksum": Setting(3, 4, Checksum),
    "LEDAnimation": Setting(0x80, 1, Byte, numbered=True),
    "LEDColor": Setting(0x80, 2, Byte, numbered=True),
    "LEDSpeed": Setting(0x80, 3, Byte, numbered=True),
}
