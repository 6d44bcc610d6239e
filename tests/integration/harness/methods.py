"""The public methods of the daemon."""

from typing import NamedTuple

PLACEHOLDER = "---"


class Method(NamedTuple):
    name: str
    signature: str  # as registered: result, colon, parameters
    parameters: tuple  # types that the method reads
    fallback: object  # result without a device; clients receive a NaN as 0.0
    check: str = ""  # model that the method checks: "", "HVA" or "MZD"
    class_name: str = ""  # in the log, if it differs from the name

    def logged_name(self):
        return self.class_name or self.name

    def takes_device(self):
        return self.parameters[:1] == (str,)

    def sample_arguments(self, device):
        """Returns arguments of the right types, with `device` as the device string."""
        samples = {str: device, int: 0, float: 1.0, bool: True}
        return [samples[kind] for kind in self.parameters]


METHODS = (
    Method("Grip", "i:Si", (str, int), 3),
    Method("Release", "i:Si", (str, int), 3),
    Method("Disable", "i:S", (str,), 3),
    Method("Home", "i:S", (str,), 3, "HVA", "Reference"),
    Method("Reference", "i:S", (str,), 3, "HVA"),
    Method("Holdfast", "i:S", (str, bool), 3, "MZD"),
    Method("UpdatePDIN", "i:S", (str,), 3),
    Method("GetPDINExcerpt", "i:S", (str,), 0),
    Method("GetState", "i:S", (str,), -1),
    Method("GetTempWarn", "b:S", (str,), False),
    Method("GetTempFault", "b:S", (str,), False),
    Method("GetFault", "b:S", (str,), False),
    Method("GetMaintenance", "b:S", (str,), False),
    Method("GetPos", "d:S", (str,), 0.0),
    Method("GetGrippers", "A:", (), None),
    Method("GetGripperInterface", "i:S", (str,), -1),
    Method("GetParameterChecksum", "i:S", (str,), 0),
    Method("StoreRemanent", "i:S", (str,), 3),
    Method("GetReleaseLimit", "d:Si", (str, int), 0.0),
    Method("GetNoPartLimit", "d:Si", (str, int), 0.0),
    Method("GetForce", "i:Si", (str, int), 0, "HVA"),
    Method("GetOverrideRelease", "i:S", (str,), 0),
    Method("GetOverrideGrip", "i:S", (str,), 0),
    Method("GetHomingDirection", "b:S", (str,), False, "HVA", "GetReferenceDirection"),
    Method("GetReferenceDirection", "b:S", (str,), False, "HVA"),
    Method("SetReleaseLimit", "i:Sid", (str, int, float), 3),
    Method("SetNoPartLimit", "i:Sid", (str, int, float), 3),
    Method("SetForce", "i:Sii", (str, int, int), 3, "HVA"),
    Method("SetOverrideRelease", "i:Si", (str, int), 3, "HVA"),
    Method("SetOverrideGrip", "i:Si", (str, int), 3, "HVA"),
    Method("SetHomingDirection", "i:Sb", (str, bool), 3, "HVA", "SetReferenceDirection"),
    Method("SetReferenceDirection", "i:Sb", (str, bool), 3, "HVA"),
    Method("GetLEDAnimation", "i:Si", (str, int), 0, "MZD"),
    Method("GetLEDColor", "i:Si", (str, int), 0, "MZD"),
    Method("GetLEDSpeed", "i:Si", (str, int), 0, "MZD"),
    Method("SetLEDPreset", "i:Si", (str, int), 3, "MZD"),
    Method("SetLEDAnimation", "i:Sii", (str, int, int), 3, "MZD"),
    Method("SetLEDColor", "i:Sii", (str, int, int), 3, "MZD"),
    Method("SetLEDSpeed", "i:Sii", (str, int, int), 3, "MZD"),
    Method("GetVersion", "i:S", (), None),
)

METHOD = {method.name: method for method in METHODS}
DEVICE_METHODS = tuple(method for method in METHODS if method.takes_device())


def byte_list(values):
    """A byte list as in the lines of a master."""
    return "[" + ",".join(f"{byte:x}" for byte in values) + "]"
