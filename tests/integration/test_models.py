"""Every gripper method on every model: its result and the requests that the master receives."""

from .harness.cell import PORTS
from .harness.cell_test_case import CellTestCase, main
from .harness.methods import METHOD, byte_list

MODELS = ("TLM", "HVA", "MZD-S", "MZD-L")


class ModelsTestCase(CellTestCase):
    """One master of each model, which sends process data only if a test does."""

    options = [word for model in MODELS for word in ("--gripper", model)] + ["--pdin-hz", "0"]

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(len(MODELS))


class ListTest(ModelsTestCase):
    def test_both_ports_list_all_grippers_in_order(self):
        for port in PORTS:
            self.assertEqual(self.call("GetGrippers", port=port),
                             [f"{model} SN:{100001 + at}" for at, model in enumerate(MODELS)])


class EveryMethod:
    """The tests of one model. `passes` names the model checks that it passes."""

    model = ""
    detected = ""
    passes = ("",)

    def setUp(self):
        self.number = MODELS.index(self.model)
        self.device = f"{self.model} SN:{100001 + self.number}"

    def requests(self):
        return self.cell.show(self.number)["requests"]

    def checksum(self):
        checksum = bytes(self.cell.show(self.number)["parameters"]["3/4"])
        return int.from_bytes(checksum, "little", signed=True)

    def expect(self, method, *arguments, answer, requests=()):
        """Calls a method. A model that fails its check gets the fallback and no further request."""
        check = METHOD[method].check
        if check not in self.passes:
            answer, requests = METHOD[method].fallback, ()
        expected = [*(["DEVINFO?"] if check else []), *requests]
        before = self.requests()
        mark = self.cell.log.mark()
        result = self.call(method, self.device, *arguments)
        self.assertEqual((type(result), result), (type(answer), answer))
        self.assertEqual(self.requests()[-len(expected) - 1:], before[-1:] + expected)
        if check:
            self.cell.log.wait_for(rf"\d {self.detected} detected$", since=mark)

    def master_sends(self, line):
        self.cell.master_sends(self.number, "@" + line)

    def expect_pdout(self, method, *arguments, stored, sent):
        with self.subTest(method=method, arguments=arguments, stored=stored):
            self.master_sends("PDOUT=" + byte_list(stored))
            self.expect(method, *arguments, answer=0, requests=["PDOUT=" + byte_list(sent)])
            if METHOD[method].check in self.passes:
                self.assertEqual(self.cell.show(self.number)["pdout"], list(sent))

    def set_parameter(self, index, subindex, *value):
        text = byte_list(value).strip("[]")
        self.cell.command(f"param {self.number} {index} {subindex} {text}")

    def expect_read(self, method, *arguments, key, value, answer):
        """Checks that a read call reads parameter `key` and decodes its bytes `value`."""
        with self.subTest(method=method, arguments=arguments, value=value):
            self.set_parameter(*key, *value)
            self.expect(method, *arguments, answer=answer,
                        requests=[f"PARAM[{key[0]}][{key[1]}]?"])

    def expect_write(self, method, *arguments, key, value):
        """Checks that a write call writes the bytes `value` to parameter `key`."""
        with self.subTest(method=method, arguments=arguments):
            self.expect(method, *arguments, answer=0,
                        requests=[f"PARAM[{key[0]}][{key[1]}]={byte_list(value)}"])
            if METHOD[method].check in self.passes:
                parameters = self.cell.show(self.number)["parameters"]
                self.assertEqual(parameters[f"{key[0]}/{key[1]}"], list(value))

    def test_grip_and_release_send_direction_enable_and_parameter_set(self):
        self.expect_pdout("Grip", 3, stored=(0x04, 0x00), sent=(0x03, 0x03))
        self.expect_pdout("Release", 1, stored=(0x13, 0x03), sent=(0x12, 0x01))
        self.expect_pdout("Grip", 0, stored=(0xF8, 0x09), sent=(0xFB, 0x00))
        self.expect_pdout("Release", 2, stored=(0xFF, 0x09), sent=(0xFA, 0x02))

    def test_parameter_sets_are_sent_as_bytes(self):
        self.expect_pdout("Grip", 256, stored=(0x00, 0x01), sent=(0x03, 0x00))
        self.expect_pdout("Release", -1, stored=(0x00, 0x01), sent=(0x02, 0xFF))

    def test_disable_clears_only_enable(self):
        self.expect_pdout("Disable", stored=(0x1F, 0x05), sent=(0x1D, 0x05))

    def test_reference_and_home_request_a_reference_run(self):
        for name in ("Reference", "Home"):
            self.expect_pdout(name, stored=(0x11, 0x07), sent=(0x17, 0x07))

    def test_holdfast_sets_and_clears_its_bit(self):
        self.expect_pdout("Holdfast", True, stored=(0x03, 0x09), sent=(0x13, 0x09))
        self.expect_pdout("Holdfast", False, stored=(0x13, 0x09), sent=(0x03, 0x09))

    def test_the_led_preset_fills_the_upper_three_bits(self):
        self.expect_pdout("SetLEDPreset", 9, stored=(0x1B, 0x02), sent=(0x3B, 0x02))
        self.expect_pdout("SetLEDPreset", 7, stored=(0x02, 0x02), sent=(0xE2, 0x02))
        self.expect_pdout("SetLEDPreset", 0, stored=(0xE2, 0x02), sent=(0x02, 0x02))

    def test_without_two_stored_bytes_no_pdout_is_sent(self):
        self.master_sends("PDOUT=[1]")
        for name, arguments in (("Grip", [1]), ("Release", [1]), ("Disable", []),
                                ("Reference", []), ("Holdfast", [True]), ("SetLEDPreset", [1])):
            with self.subTest(method=name):
                self.expect(name, *arguments, answer=21)

    def test_process_data_are_decoded(self):
        self.master_sends("PDIN=[9,c4,0,a3]")
        for name, answer in (("GetPos", 25.0), ("GetState", 3), ("GetFault", False),
                             ("GetTempFault", True), ("GetTempWarn", False),
                             ("GetMaintenance", True), ("GetPDINExcerpt", 0xA3C409)):
            with self.subTest(method=name):
                self.expect(name, answer=answer)

    def test_each_flag_has_its_own_bit(self):
        flags = ("GetFault", "GetTempFault", "GetTempWarn", "GetMaintenance")
        for bit, flag in enumerate(flags, start=4):
            self.master_sends(f"PDIN=[0,0,0,{1 << bit:x}]")
            for name in flags:
                with self.subTest(bit=bit, method=name):
                    self.expect(name, answer=name == flag)

    def test_a_position_may_be_negative(self):
        self.master_sends("PDIN=[ff,38,f,f]")
        self.expect("GetPos", answer=-2.0)
        self.expect("GetState", answer=15)

    def test_the_excerpt_leaves_out_the_third_byte(self):
        self.master_sends("PDIN=[1,2,3,4]")
        self.expect("GetPDINExcerpt", answer=262657)

    def test_process_data_of_another_length_give_the_fallbacks(self):
        self.master_sends("PDIN=[9,c4]")
        mark = self.cell.log.mark()
        self.expect("GetPDINExcerpt", answer=0)
        self.cell.log.wait_for("PDIN length mismatch: 2$", since=mark)
        for name, answer in (("GetPos", 0.0), ("GetState", 0), ("GetFault", False),
                             ("GetTempFault", False), ("GetTempWarn", False),
                             ("GetMaintenance", False)):
            with self.subTest(method=name):
                self.expect(name, answer=answer)

    def test_update_pdin_answers_3(self):
        self.expect("UpdatePDIN", answer=3)

    def test_the_interface_is_0(self):
        self.expect("GetGripperInterface", answer=0)

    def test_limits_are_read_as_signed_hundredths(self):
        for name, subindex in (("GetNoPartLimit", 1), ("GetReleaseLimit", 2)):
            self.expect_read(name, 0, key=(0x60, subindex), value=(0x04, 0xE2), answer=12.5)
            self.expect_read(name, 2, key=(0x62, subindex), value=(0xFF, 0x38), answer=-2.0)
            self.expect_read(name, 6, key=(0x66, subindex), value=(0x04,), answer=0.0)

    def test_limits_are_written_as_signed_hundredths(self):
        self.expect_write("SetNoPartLimit", 0, 12.5, key=(0x60, 1), value=(0x04, 0xE2))
        self.expect_write("SetReleaseLimit", 2, 0.994, key=(0x62, 2), value=(0x00, 0x63))
        self.expect_write("SetReleaseLimit", 1, -2.0, key=(0x61, 2), value=(0xFF, 0x39))

    def test_limits_out_of_range_are_clamped(self):
        self.expect_write("SetNoPartLimit", 1, 1e300, key=(0x61, 1), value=(0x7F, 0xFF))
        self.expect_write("SetReleaseLimit", 1, -1e300, key=(0x61, 2), value=(0x80, 0x00))

    def test_force(self):
        self.expect_read("GetForce", 0, key=(0x60, 3), value=(0x64,), answer=100)
        self.expect_read("GetForce", 2, key=(0x62, 3), value=(0xFF,), answer=255)
        self.expect_read("GetForce", 6, key=(0x66, 3), value=(1, 2), answer=0)
        self.expect_write("SetForce", 1, 300, key=(0x61, 3), value=(44,))

    def test_the_index_of_a_parameter_set_may_exceed_a_byte(self):
        self.expect_read("GetForce", -1, key=(0x60 + 255, 3), value=(7,), answer=7)

    def test_overrides(self):
        self.expect_read("GetOverrideGrip", key=(0x40, 1), value=(80,), answer=80)
        self.expect_read("GetOverrideRelease", key=(0x40, 2), value=(60,), answer=60)
        self.expect_write("SetOverrideGrip", 50, key=(0x40, 1), value=(50,))
        self.expect_write("SetOverrideRelease", 257, key=(0x40, 2), value=(1,))

    def test_the_reference_direction_under_both_names(self):
        for word in ("Reference", "Homing"):
            getter, setter = f"Get{word}Direction", f"Set{word}Direction"
            for value, answer in ((0xFF, True), (0, False), (1, True)):
                self.expect_read(getter, key=(0x40, 3), value=(value,), answer=answer)
            self.expect_write(setter, True, key=(0x40, 3), value=(0xFF,))
            self.expect_write(setter, False, key=(0x40, 3), value=(0x00,))

    def test_the_checksum_keeps_its_sign_bit(self):
        # The master computes its checksum. To use another one, the test sends it and makes reads
        # fail.
        self.cell.command(f"error {self.number} 9 PARAM[3][4]")
        self.addCleanup(self.cell.command, f"error {self.number} off PARAM[3][4]")
        for value, answer in (("78,56,34,12", 0x12345678), ("0,0,0,80", -2**31), ("1,2", 0)):
            with self.subTest(value=value):
                self.master_sends(f"PARAM[3][4]=[{value}]")
                self.expect("GetParameterChecksum", answer=answer, requests=["PARAM[3][4]?"])

    def test_the_checksum_of_the_gripper(self):
        self.expect("GetParameterChecksum", requests=["PARAM[3][4]?"], answer=self.checksum())

    def test_storing_is_a_system_command(self):
        self.expect("StoreRemanent", answer=0, requests=["PARAM[2][0]=[e0]"])

    def test_leds(self):
        for subindex, setting in enumerate(("Animation", "Color", "Speed"), start=1):
            self.expect_read(f"GetLED{setting}", 0, key=(0x80, subindex), value=(5,), answer=5)
            self.expect_read(f"GetLED{setting}", 3, key=(0x83, subindex), value=(1, 2), answer=0)
            self.expect_write(f"SetLED{setting}", 2, 511, key=(0x82, subindex), value=(255,))


class TlmTest(EveryMethod, ModelsTestCase):
    model, detected = "TLM", "TLM"


class HvaTest(EveryMethod, ModelsTestCase):
    model, detected, passes = "HVA", "HVA", ("", "HVA")


class MzdSTest(EveryMethod, ModelsTestCase):
    model, detected, passes = "MZD-S", "MZD S", ("", "HVA", "MZD")


class MzdLTest(EveryMethod, ModelsTestCase):
    model, detected, passes = "MZD-L", "MZD L", ("", "HVA", "MZD")


if __name__ == "__main__":
    main()
