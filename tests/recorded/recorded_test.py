"""Records a program's calls and replays them: recorded_test.py APP RECORDER [EMULATOR ARGUMENT...]

RECORDER is empty where it is not built; then only the recordings beside this file are replayed.
"""
import os
import random
import re
import struct
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
MODEL = os.path.join(HERE, "echo.model")
FUNCTIONS = ["init", "destroy", "query", "inputs_set", "run", "outputs_get", "outputs_release"]
APP, RECORDER, EMULATOR = None, None, []


def records(path):
    """The records of a recording as (function, ret, context, items), an item as (index, size, bytes stored)."""
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"CORVREC1"
    at, found = 32, []
    while at < len(data):
        _, function, ret, context, _, _, _, _, count, size = struct.unpack_from("<QIiQQQIIII", data, at)
        end, at, items = at + 56 + size, at + 56, []
        for _ in range(count):
            _, index, full, stored = struct.unpack_from("<QIII", data, at)
            items.append((index, full, data[at + 32:at + 32 + stored]))
            at += 32 + stored + -stored % 8
        assert at == end <= len(data)
        found.append((FUNCTIONS[function], ret, context, items))
    return found


class RecordedTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.file = os.path.join(folder.name, "calls")

    def app(self, threads, frames, *options, preload=None, status=0, **variables):
        # The sanitizer's own library need not be the first to be loaded.
        environment = {**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0", **variables}
        command = [*EMULATOR, APP, MODEL, str(threads), str(frames), *options]
        if preload and EMULATOR:
            command[1:1] = ["-E", "LD_PRELOAD=" + preload]
        elif preload:
            environment["LD_PRELOAD"] = preload
        done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=300,
                              check=False)
        if status is not None:
            self.assertEqual(done.returncode, status, done.stderr.decode())
        return [line for line in done.stdout.decode().splitlines() if line.startswith("thread")], done.stderr.decode()

    def record(self, *arguments, **variables):
        if not RECORDER:
            self.skipTest("the recorder is not built")
        return self.app(*arguments, preload=RECORDER, CORVANE_RECORD=self.file, **variables)

    def replay(self, *arguments, total, says=(), **variables):
        """total: frames played, of how many, with other inputs; calls not as recorded; outputs not kept. None where
        it depends on the order of threads."""
        out, err = self.app(*arguments, **{"CORVANE_SIM_REPLAY": self.file, **variables})
        lines = [line for line in err.splitlines() if line.startswith("corvane replay: ")]
        if total:
            self.assertEqual([int(number) for number in re.findall(r"\b\d+\b", lines[-1])], list(total), lines)
        for text in says:
            self.assertIn(text, err)
        if not says:
            self.assertEqual(len(lines), 1, lines)
        return out

    def test_ten_thousand_frames_of_four_threads_come_again(self):
        recorded, _ = self.record(4, 2500)
        self.assertEqual(recorded, self.app(4, 2500)[0])  # the recorder changes nothing
        self.assertEqual(recorded, self.replay(4, 2500, total=(10000, 10000, 0, 0, 0)))

    def test_recordings_of_both_machines_are_replayed_here(self):
        for machine in ["x86-64", "aarch64"]:
            self.file = os.path.join(HERE, machine + ".calls")
            with open(os.path.join(HERE, "lines.txt"), encoding="utf-8") as file:
                wanted = file.read().splitlines()
            with self.subTest(machine):
                self.assertEqual(wanted, self.replay(4, 6, "kind=float32", total=(24, 24, 0, 0, 0)))
                self.replay(4, 6, "kind=float32", "change=3:5:100", total=(24, 24, 1, 0, 0), says=[
                    "input 0 'image', channel 1, row 4, column 1: 45 (0x42340000), in the recording 44 (0x42300000); "
                    "1 of 192 elements differ"])

    def test_the_first_different_element_is_named(self):
        self.record(1, 4)
        sets = [items for function, _, _, items in records(self.file) if function == "inputs_set"]
        place = 3 * (7 * 8 + 6) + 2
        old = sets[2][0][2][place]
        self.replay(1, 4, "change=0:2:%d" % place, total=(4, 4, 1, 0, 0), says=[
            "rknn_inputs_set, call 14 of the recording (frame 3 of context 0xc0de0001): input 0 'image', channel 2, row 7, column 6: %d (0x%02x), in the recording "
            "%d (0x%02x); 1 of 192 elements differ" % (old ^ 1, old ^ 1, old, old)])

    def test_frames_in_another_order_are_found(self):
        self.record(2, 20)
        self.replay(2, 20, "reverse", total=(40, 40, 0, 0, 0))
        # It differs in one bit from one of the next frames, and in almost all bytes from the others.
        self.replay(2, 10, "reverse", "change=1:4:7", total=(20, 40, 1, 0, 0), says=["(frame 5 of context", "; 1 of 192 elements"])

    def test_failures_and_times_come_again(self):
        recorded, _ = self.record(1, 6, CORVANE_SIM_FAULTS="rknn_run:2=-2,rknn_inputs_set:4=-7,rknn_outputs_get:3=-1+200ms")
        self.assertIn("3 failed", recorded[0])
        self.assertEqual({"run": [-2], "inputs_set": [-7], "outputs_get": [-1]},
                         {function: [ret] for function, ret, _, _ in records(self.file) if ret != 0})
        begin = time.monotonic()
        self.assertEqual(recorded, self.replay(1, 6, total=(6, 6, 0, 0, 0), CORVANE_SIM_REPLAY_TIMES="1"))
        self.assertGreater(time.monotonic() - begin, 0.2)

    def test_calls_that_fail_or_differ_get_the_recorded_codes(self):
        recorded, _ = self.record(0, 0)
        self.assertEqual(recorded, ["thread raw: -5 0 0 -5 -1 -8 -5 -8 0 0 0 0 [7.000000 4.000000] 0 0 -7"])
        self.assertEqual(recorded, self.replay(0, 0, total=(4, 4, 0, 0, 0)))
        # Other queries, another layout of the input, another form of the second output, one release more.
        out = self.replay(0, 1, total=(4, 4, 3, 4, 0), says=[
            "): 0 inputs, in the recording 1\n", "rknn_query, call 4 of the program: the recording has no such call here", "rknn_query, call 5 of the program",
            "inputs[0] is index 0, 192 bytes of uint8 NHWC, pass_through 0, in the recording index 0, 192 bytes of uint8 NCHW",
            "the program wants output 1 otherwise than in the recording", "rknn_outputs_release, call 14 of the program"])
        self.assertEqual(out, ["thread raw: -5 0 0 -5 -5 -8 -5 -8 0 0 0 0 [7.000000 0.000000] 0 -1 0 -7"])

    def test_what_the_recording_does_not_have_is_said(self):
        self.record(1, 4)
        self.replay(1, 3, total=(3, 4, 0, 0, 0))
        out = self.replay(1, 5, total=(4, 4, 0, 1, 0), says=["rknn_inputs_set, call 22 of the program: the recording has"])
        self.assertIn("1 failed", out[0])
        self.replay(2, 4, total=None, says=["rknn_init: more contexts of the model of 112 bytes than in the recording"])
        self.replay(1, 4, "kind=float32", total=(4, 4, 4, 0, 0), says=[
            "inputs[0] is index 0, 768 bytes of float32 NCHW, pass_through 0, in the recording index 0, 192 bytes of"])

    def test_bytes_and_frames_can_be_left_out(self):
        self.record(1, 6, CORVANE_RECORD_EVERY="3")
        sizes = [len(items[0][2]) for function, _, _, items in records(self.file) if function == "inputs_set"]
        self.assertEqual(sizes, [192, 0, 0, 192, 0, 0])
        self.replay(1, 6, total=(6, 6, 0, 0, 8), says=[""])
        os.remove(self.file)
        self.record(0, 0, CORVANE_RECORD_EVERY="2")  # frames 1 and 3 are kept, 4 has outputs
        out = self.replay(0, 0, total=(4, 4, 0, 0, 2), says=[""])
        self.assertIn("[nan nan]", out[0])
        os.remove(self.file)
        self.record(1, 6, CORVANE_RECORD_FRAMES="2")
        functions = [function for function, _, _, _ in records(self.file)]
        frame = ["inputs_set", "run", "outputs_get", "outputs_release"]
        self.assertEqual(functions[-9:], [*frame, *frame, "destroy"])
        os.remove(self.file)
        _, err = self.record(4, 100, CORVANE_RECORD_MAX_BYTES="50000")
        self.assertIn("corvane recorder: stopped: the next call does not fit", err)
        self.assertLessEqual(os.path.getsize(self.file), 50000)
        self.assertGreater(os.path.getsize(self.file), 48000)
        self.assertGreater(len(records(self.file)), 100)

    def test_a_crash_loses_no_call_and_a_cut_or_a_flipped_bit_is_found(self):
        self.record(1, 6, "abort=4", status=-6)
        calls = records(self.file)
        self.assertEqual([function for function, _, _, _ in calls][-2:], ["outputs_get", "outputs_release"])
        self.assertEqual(sum(function == "run" for function, _, _, _ in calls), 4)
        with open(self.file, "rb") as file:
            data = file.read()
        flips = random.Random(1)
        for _ in range(5 if EMULATOR else 40):
            at = flips.randrange(32, len(data))
            for damaged in [data[:at], data[:at] + bytes([data[at] ^ 1 << flips.randrange(8)]) + data[at + 1:]]:
                with open(self.file, "wb") as file:
                    file.write(damaged)
                _, err = self.app(1, 4, status=None, CORVANE_SIM_REPLAY=self.file)
                if b"\0" * 8 not in data[at - 8:at + 8]:  # not in what fills items up
                    self.assertRegex(err, r"corvane replay: .*: call \d+ is cut off or damaged; \d+ bytes")

    def test_children_are_not_recorded_and_run_as_without(self):
        self.record(2, 3, "fork")
        self.assertEqual(len({context for _, _, context, _ in records(self.file) if context}), 2)

    def test_a_file_that_is_no_recording_fails_every_call(self):
        self.file = MODEL
        _, err = self.app(1, 1, status=None, CORVANE_SIM_REPLAY=MODEL)
        self.assertIn("is no recording of the runtime's calls; every call fails", err)
        self.assertIn("failed to init RKNN context", err)


if __name__ == "__main__":
    APP, RECORDER, EMULATOR = sys.argv[1], sys.argv[2], sys.argv[3:]
    del sys.argv[1:]
    unittest.main()
