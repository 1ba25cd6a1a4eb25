"""corvane record, replay and info of a recording; the recorder and the replay have a test of their own."""
import os
import sys

from tool_case import ToolCase, main

HERE = os.path.dirname(os.path.abspath(__file__))
MODEL = os.path.join(HERE, "..", "recorded", "echo.model")
os.environ["ASAN_OPTIONS"] = "verify_asan_link_order=0"  # the recorder is loaded first


class RecordTest(ToolCase):
    def record(self, *arguments, options=(), name="calls"):
        return self.corvane("record", "-o", name, *options, "--", *self.app, *arguments)

    @property
    def app(self):
        return [*self.emulator, os.path.join(os.path.dirname(self.programs[0]), "..", "tests", "recorded_app"), MODEL]

    def test_what_was_recorded_is_replayed_and_summed_up(self):
        recorded, err = self.record("2", "3", options=["--every", "2"])
        self.assertRegex(err, r"corvane: calls: 36 calls in \d+ bytes\n$")
        out, _ = self.corvane("info", "calls", says=[
            "bytes         kept of 1 frame in 2", "calls         36 from 2 threads", "rknn_init 2 times",
            "rknn_outputs_release          6"])
        self.assertNotIn("end ", out)
        os.remove(self.path("calls"))
        recorded, _ = self.record("2", "3")
        replayed, _ = self.corvane("replay", "calls", "--times", "--", *self.app, "2", "3")
        self.assertEqual(recorded[-100:], replayed[-100:])
        self.corvane("replay", "calls", "--", *self.app, "2", "3", "change=1:1:1", status=1, says="channel 1, row 0")
        self.corvane("replay", "calls", "--", *self.app, "2", "2", status=1, says="4 of 6 recorded frames played")
        self.corvane("replay", "calls", "--", sys.executable, "-c", "pass", status=1,
                     says="has not called the simulated runtime")

    def test_a_cut_recording_is_summed_up_to_there(self):
        self.record("1", "3")
        os.truncate(self.path("calls"), os.path.getsize(self.path("calls")) - 1)
        self.corvane("info", "calls", says="end           call 18 is cut off or damaged; 55 bytes from there on are not read")

    def test_the_program_s_status_is_handed_on(self):
        script = "import os, sys; os.kill(os.getpid(), 15) if sys.argv[1] == 'kill' else sys.exit(int(sys.argv[1]))"
        self.record("1", "1")
        for word, status in [("7", 7), ("kill", 143)]:
            command = ["--", sys.executable, "-c", script, word]
            self.corvane("replay", "calls", *command, status=status)
        self.corvane("record", "-o", "new", "--", *self.app, "1", "2", "abort=1", status=134,
                     says=["ended by signal 6", "corvane: new: 9 calls"])

    def test_mistakes(self):
        self.record("1", "1")
        app = ["--", *self.app, "1", "1"]
        for arguments, says in [
                (["record", "-o", "calls", *app], "calls: is there already; a recording never replaces a file"),
                (["record", "-o", "new", "--", "no-such-program"], "no-such-program: No such file or directory"),
                (["record", "-o", "new", "--", "true"], "nothing was recorded: true has not called the runtime"),
                (["record", "-o", "new", "--frames", "0", *app], "--frames: '0' is not a number from 1 on"),
                (["record", "-o", "new", "--every", "-1", *app], "--every: '-1' is not a number from 1 on"),
                (["record", "-o", "no/new", *app], "No such file or directory; nothing is recorded"),
                (["replay", MODEL, *app], "echo.model: is no recording of the runtime's calls"),
                (["replay", "nothing", *app], "nothing: No such file or directory")]:
            if self.emulator and "no-such-program" in arguments:
                continue  # the emulator's posix_spawn does not tell
            with self.subTest(arguments):
                self.corvane(*arguments, status=1, says=says)


if __name__ == "__main__":
    main()
