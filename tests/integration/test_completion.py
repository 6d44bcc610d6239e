"""Completion of tavrikctl in an interactive bash, on a terminal."""

import pathlib
import shlex

from .harness import ctl
from .harness.cell_test_case import main
from .harness.ctl_test_case import CtlTestCase
from .harness.terminal import TerminalSession

COMPLETION = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "completion" / "tavrikctl"
SETUP = ("source /usr/share/bash-completion/bash_completion\n"
         f"source {shlex.quote(str(COMPLETION))}\n"
         f"tavrikctl() {{ {shlex.quote(ctl.arguments_of()[0])} \"$@\"; }}\n"
         "bind 'set show-all-if-ambiguous on' 'set bell-style none'\n"
         "PS1='> '; clear\n")


class CompletionTest(CtlTestCase):
    options = ("--gripper", "HVA", "--gripper", "TLM", "--gripper", "TLM,serial=77",
               "--gripper", "MZD-S,serial=5", "--gripper", "MZD-S,serial=5")

    def setUp(self):
        self.bash = TerminalSession(
            command=["bash", "-c", "exec bash --norc --noprofile -i 2>&1"], rows=24, columns=100,
            controlling=True, environment={"INPUTRC": "/dev/null"})
        self.addCleanup(self.bash.__exit__)
        self.bash.wait_for("[$#]$")
        self.bash.type(SETUP)
        self.bash.wait_for("^>$")

    def expect(self, typed, shown):
        """Types a line and a tab; waits until the line reads `shown`, then clears it."""
        self.bash.type(typed + "\t")
        self.bash.wait_for("^> " + shown + "$")
        self.bash.type("\x15")
        self.bash.wait_for("^>$")

    def offered(self, typed):
        """What is offered for a line that several words continue."""
        self.bash.type(typed + "\t")
        self.bash.wait_for("^[^> ]")
        lines = self.bash.wait_for("^> " + typed.strip() + "$")
        self.bash.type("\x15")
        return {word for line in lines for word in line.replace("\\ ", "_").split()
                if not line.startswith(">")}

    def test_names_are_completed_with_their_blanks_quoted(self):
        self.expect(r"tavrikctl grip HVA\ ", r"tavrikctl grip HVA\\ SN:100001")
        self.expect(r"tavrikctl grip hva\ ", r"tavrikctl grip HVA\\ SN:100001")
        self.expect(r"tavrikctl grip HVA\ SN:10", r"tavrikctl grip HVA\\ SN:100001")
        self.expect("tavrikctl grip 'TLM SN:7", "tavrikctl grip 'TLM SN:77'")
        self.expect('tavrikctl set force 60 "HVA S', 'tavrikctl set force 60 "HVA SN:100001"')

    def test_serial_numbers_are_completed(self):
        self.expect("tavrikctl grip 100001", "tavrikctl grip 100001")
        self.expect("tavrikctl grip SN:7", "tavrikctl grip SN:77")

    def test_all_names_models_and_serial_numbers_are_offered(self):
        """But neither a model nor a name that two grippers have."""
        self.assertEqual(self.offered("tavrikctl grip "),
                         {"HVA_SN:100001", "TLM_SN:100002", "TLM_SN:77",
                          "HVA", "100001", "100002"})

    def test_with_exact_only_whole_names_are_offered(self):
        self.assertEqual(self.offered("tavrikctl grip --exact "),
                         {"HVA_SN:100001", "TLM_SN:100002", "TLM_SN:77"})
        self.expect("tavrikctl call --exact GetPos HV",
                    r"tavrikctl call --exact GetPos HVA\\ SN:100001")

    def test_nothing_is_offered_in_the_place_of_a_value(self):
        self.bash.type("tavrikctl set force \t\tX")
        self.bash.wait_for("^> tavrikctl set force X$")


if __name__ == "__main__":
    main()
