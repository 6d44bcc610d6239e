"""Output of a broken master, as texts for the simulator's command `send`.

Each function generates one random text, about as long as the simulator accepts at once.
"""

LENGTH = 4000  # of a text, in bytes on the wire

MODES = ("0", "1", "2", "3", "4", "5", "6", "7", "8", "99", "-1", "2147483648", "", "x")
KEYS = ("nobody", "PDOUT", "DEVINFO", "MODE", "PARAM[96][3]", "PARAM[64][1]", "")
ERROR_CODES = (7, 0, -1)
ERROR_NUMBERS = (*(f" {code}" for code in ERROR_CODES), " abc", " 99999999999", " ", "")


def lines(line, length):
    """Returns as many lines as fit; `length` is that of a long line."""
    return "".join(line() + r"\n" for _ in range(LENGTH // (length + 1)))


def garbage(random):
    return "".join(rf"\x{byte:02x}" for byte in random.randbytes(LENGTH))


def endless_line(_random):
    return "x" * LENGTH


def long_lines(_random):
    return lines(lambda: "x" * 999, 999)


def empty_lines(_random):
    return lines(lambda: "", 0)


def errors(random):
    return lines(lambda: f"ERR {random.choice(KEYS)}{random.choice(ERROR_NUMBERS)}", 30)


def answers(random):
    """Replies without a request, and replies to requests of the daemon."""
    def line():
        key = random.choice(KEYS)
        return random.choice((f"ACK {key}", f"FIN {key}", f"{key}=[{random.randrange(256):x}]"))
    return lines(line, 20)


def names(random):
    """Names of the master and of its gripper."""
    return lines(lambda: random.choice(('ID="OTHER"', "ID=", "ID=PELLIX", "PARAM[19][0]=[58]",
                                        "PARAM[21][0]=[]", "DEVINFO=[0,0,0,32,16,0,0,31249]",
                                        "DEVINFO=[4294967295,4294967295]", "DEVINFO=[]")), 32)


def parameters(random):
    return lines(lambda: f"@PARAM[{random.randrange(100)}][{random.randrange(8)}]=[1,2]", 21)


def modes(random):
    return lines(lambda: f"@MODE={random.choice(MODES)}", 16)


def process_data(_random):
    return lines(lambda: "@PDIN=[9,c4,0,a3]", 17)


def unmarked_process_data(_random):
    return lines(lambda: "PDIN=[9,c4,0,a3]", 16)


ALL = (garbage, endless_line, long_lines, empty_lines, errors, answers, names, parameters, modes,
       process_data, unmarked_process_data)
