#include "tavrikctl/HelpTexts.h"

#include <map>

namespace tavrik {

namespace {

// Lines of up to 80 columns; each text begins with a line feed.
const std::map<std::string, const char*>& Texts() {
    static const std::map<std::string, const char*> kTexts{
        {"list", R"(
Prints device string, model (a guess from answers and name), state code,
position and flags of each gripper. State codes and the unit of positions are
explained in the gripper's manual. Reads settings of the grippers.

Example:
  tavrikctl list --host 192.168.1.10

What can go wrong:
  No grippers found: run 'tavrikctl doctor'.
  The master does not answer: the values may be old; check its power and cable.
  Reading disturbs a working robot: its calls may fail. Use --passive.)"},
        {"grip", R"(
Closes the fingers until they hold a part or reach the no-part limit. Force and
limit come from the parameter set. The fingers move at once.

Example:
  tavrikctl grip 'HVA SN:100001' --set 1 --wait

What can go wrong:
  Nothing moves: a reference run is missing (tavrikctl home), override-grip is
  0, or the gripper does not have this parameter set.
  The fingers close, but state and position show that there is no part.
  Status 21: the gripper is starting, or its cable is unplugged.)"},
        {"release", R"(
Opens the fingers up to the release limit of the parameter set. A held part
falls. The fingers move at once.

Example:
  tavrikctl release 'HVA SN:100001' --set 1 --wait

What can go wrong:
  Nothing moves: a reference run is missing (tavrikctl home), override-release
  is 0, or the gripper does not have this parameter set.
  Status 21: the gripper is starting, or its cable is unplugged.)"},
        {"home", R"(
Performs a reference run, which most models need after power-up: the fingers
move over their whole stroke, outwards or, with reference-direction on, inwards.
Clear the space around them first.

Example:
  tavrikctl home 'HVA SN:100001' --wait

What can go wrong:
  Status 3: this model has no reference run.
  A second run does nothing: send a grip, a release or a disable before it.
  The run fails if a part is in the way.)"},
        {"disable", R"(
Switches the drive off: the fingers stop, and a part may fall unless holdfast
is on.

Example:
  tavrikctl disable 'HVA SN:100001'

What can go wrong:
  The daemon or the master does not answer: the drive stays on. This is not an
  emergency stop.)"},
        {"holdfast", R"(
"on" holds the part while the drive is off. "off" stops holding it, and the part
may fall.

Example:
  tavrikctl holdfast on 'MZD-S SN:100002'

What can go wrong:
  Status 3: only MZD models support it.)"},
        {"store", R"(
Saves all settings in the gripper's permanent memory. Changes that are not
stored are lost at power-off.

Example:
  tavrikctl store 'HVA SN:100001'

What can go wrong:
  Status 5: the master did not answer in time; compare the settings after the
  next start, or store again.)"},
        {"get", R"(
Reads one setting from the gripper. Limits have the unit of its positions; its
manual gives the units of forces and overrides.

Example:
  tavrikctl get force --set 1 'HVA SN:100001'

What can go wrong:
  The answer is 0 or off: the gripper may not have this setting.
  Status 5: its master does not answer.)"},
        {"set", R"(
Changes one setting and reads it back. Limits have the unit of the gripper's
positions; its manual gives the units of forces and overrides. Unless it is
stored (tavrikctl store), the change is lost at power-off.

Example:
  tavrikctl set force 60 --set 1 'HVA SN:100001'

What can go wrong:
  The gripper reports another value: it refused the new one.
  Status 3: the model does not have this setting.)"},
        {"settings", R"(
Shows, saves, compares or restores all settings of a gripper: parameter sets,
overrides, reference direction, LEDs. The file is sorted JSON, suitable for
version control.

Example:
  tavrikctl settings save hva.json 'HVA SN:100001'

What can go wrong:
  See the help of each command, such as 'tavrikctl settings restore --help'.)"},
        {"settings show", R"(
Prints all settings of a gripper. Limits have the unit of its positions; its
manual gives the units of forces and overrides. This takes about a second.

Example:
  tavrikctl settings show 'HVA SN:100001'

What can go wrong:
  The gripper moves, or another program changes it: stop that program first.)"},
        {"settings save", R"(
Reads all settings of a gripper and writes them to FILE, with its model and
name. Units are those of the gripper. Replaces a file of another gripper only
with --yes.

Example:
  tavrikctl settings save hva.json 'HVA SN:100001'

What can go wrong:
  The gripper moves, or another program changes it: stop that program first.
  The master refuses to send a value: the file has the previous value, or 0 with
  a warning.)"},
        {"settings diff", R"(
Prints the settings of a gripper that differ from those in FILE, in the units of
the gripper. Ends with status 1 if there are any.

Example:
  tavrikctl settings diff hva.json 'HVA SN:100001'

What can go wrong:
  Status 3: the file is from another model.)"},
        {"settings restore", R"(
Prints what will change, asks, writes the settings in FILE to the gripper and
reads them back. Without --store, the changes are lost at power-off. Units are
those of the gripper.

Example:
  tavrikctl settings restore hva.json --store 'HVA SN:100007'

What can go wrong:
  Status 3: the file is from another model.
  The gripper refuses a value: it is listed, and nothing is stored.
  The connection breaks: repeat the command to finish.
  The file has 0, or fewer sets than the gripper: a warning names them.)"},
        {"cell", R"(
Saves which grippers a cell has, for 'list --cell' and 'doctor --cell'.

Example:
  tavrikctl cell save cell.json

What can go wrong:
  See 'tavrikctl cell save --help'.)"},
        {"cell save", R"(
Writes the names of all grippers to FILE. Reads nothing from the grippers.

Example:
  tavrikctl cell save cell.json

What can go wrong:
  No gripper is found, or one that is in the file is missing: plug it in, or
  add --yes.)"},
        {"log", R"(
Shows the daemon's log: each line with its master and gripper, each call as one
line with its duration in s or ms, problems marked by "!", and a summary. Reads
the journal of the service, FILE, or "-" for standard input.

Example:
  tavrikctl log --since 10min 'HVA SN:100001'

What can go wrong:
  The journal is empty: run it as root, or name the file.
  "?": the log does not show which gripper or call the line belongs to.)"},
        {"watch", R"(
Shows position, state, flags and age of the values 20 times a second: a row for
each gripper, or one gripper in full. Without a terminal it prints a row for
each reading. Positions are in the gripper's unit. "q" quits.

Example:
  tavrikctl watch 'HVA SN:100001'

What can go wrong:
  frozen: the master does not answer; check its power and cable.
  none: the gripper was unplugged, or the daemon has ended; watch waits for it.
  Reading disturbs a working robot: its calls may fail. Use --passive.)"},
        {"call", R"(
Sends one call with the types that the method needs. INTEGER is decimal, limits
are a NUMBER in the unit of the gripper's positions. Nothing is checked or read
back. Motions move the fingers at once.

Example:
  tavrikctl call SetForce 'HVA SN:100001' 1 60

What can go wrong:
  A failed read also returns 0, 0.0 or false.
  A status other than 0 is explained on standard error.)"},
        {"doctor", R"(
Checks service, network, ports, USB, masters and grippers, and prints a remedy
below each problem. Moves and changes nothing. Only root can check everything.

Example:
  sudo tavrikctl doctor

What can go wrong:
  A row with "?" could not be checked: follow its "do:" line.
  The checks disturb a working robot: its calls may fail.
  A browser shows "404" or "405" for a port of the daemon: that is normal, the
  port serves programs only.)"},
    };
    return kTexts;
}

}  // namespace

std::string HelpText(const std::string& command) {
    const auto text = Texts().find(command);
    return text == Texts().end() ? "" : text->second + 1;
}

}  // namespace tavrik
