"""corvane bench: percentiles of injected delays, changes, hangs."""
import json
import os
import random

from tool_case import PREFIX, ToolCase, main

RUNTIME = os.path.join(os.environ["CORVANE_BROKEN_RUNTIMES"], "sound")


class BenchTest(ToolCase):
    def bench(self, delays, *arguments, status=0, says=(), broken=None):
        self.write("delays", "\n".join(str(delay) for delay in delays))
        os.environ.update(LD_LIBRARY_PATH=RUNTIME, BROKEN=broken or "delays=" + self.path("delays"))
        out, err = self.corvane("bench", self.write("model.bin", PREFIX + b"RKNN"), "--json", "bench.json",
                                *([] if "--seconds" in arguments else ["--seconds", "1"]), *arguments, status=status, says=says)
        if not os.path.exists(self.path("bench.json")):
            return None, out + err
        with open(self.path("bench.json"), encoding="utf-8") as file:
            result = json.load(file)
        os.remove(self.path("bench.json"))
        return result, out

    def tearDown(self):
        for name in ["LD_LIBRARY_PATH", "BROKEN"]:
            os.environ.pop(name, None)

    def test_percentiles_are_those_of_the_delays(self):
        # A busy machine delays some of the frames, and never makes one faster.
        delays = 55 * [100] + 37 * [300] + 6 * [1200] + 1 * [5000] + 1 * [20000]
        random.Random(1).shuffle(delays)
        result, out = self.bench(delays, "--parallel", "3")
        run = result["latency"]["milliseconds"]["run"]
        self.assertEqual(result["latency"]["frames"], 600)
        for name, least, most in [("p50", 0.1, 5), ("p90", 0.3, 5), ("p99", 5, 1000), ("max", 20, 1000)]:
            with self.subTest(name):
                self.assertGreaterEqual(run[name], least)
                self.assertLess(run[name], most)
                self.assertEqual(len(run["rounds"]), 3)
        whole = result["latency"]["milliseconds"]["whole"]
        self.assertGreaterEqual(whole["p50"], run["p50"])
        self.assertEqual([row["name"] for row in result["throughput"]], ["1 backend", "2 backends", "3 backends", "2 take turns"])
        self.assertLessEqual(result["throughput"][0]["frames_per_second"], 1e6 / 400)
        self.assertEqual(len(result["memory_kb"]), 2)
        self.assertIn("p99", out)

    def test_steady_or_not_is_said(self):
        result, out = self.bench([500])
        rounds = result["latency"]["milliseconds"]["whole"]["rounds"]
        spreads = [max(values) / min(values) for values in ([times[name] for times in rounds] for name in ("p50", "p90"))]
        self.assertEqual(result["latency"]["is_steady"], max(spreads) <= 1.05, rounds)
        result, out = self.bench([200 + i // 2 for i in range(20000)])
        self.assertFalse(result["latency"]["is_steady"])
        self.assertIn("NOT STEADY: p50 or p90 of the last three rounds differ by more than 5 %", out)

    def test_a_change_beyond_the_noise_is_told(self):
        then, _ = self.bench([100])
        self.write("then.json", json.dumps(then))
        now, out = self.bench([400], "--compare", "then.json", status=1)
        self.assertRegex(out, r"run +p50 +[\d.]+ +[\d.]+  SLOWER")
        self.write("then.json", json.dumps(now))
        _, out = self.bench([100], "--compare", "then.json", status=None)
        self.assertRegex(out, r"run +p50 +[\d.]+ +[\d.]+  faster")
        for part in now["latency"]["milliseconds"].values():  # one round of then was as fast as now
            part["rounds"][0] = {name: 0 for name in part["rounds"][1]}
        self.write("then.json", json.dumps(now))
        _, out = self.bench([100], "--compare", "then.json")
        self.assertRegex(out, r"run +p50 +[\d.]+ +[\d.]+  within the noise")

    def test_a_broken_runtime_ends_in_a_line(self):
        for broken, says in [("hang-run", "no frame has ended for 0.3 s: the NPU or its driver hangs"),
                             ("hang-init", "no frame has ended for 0.3 s"),
                             ("crash-run", "ended the process: signal 6"),
                             ("run=-2", "rknn_run: RKNN_ERR_TIMEOUT (-2)"),
                             ("late-failure=-1", "rknn_run: RKNN_ERR_FAIL (-1)"),
                             ("init=-13", "not loaded: rknn_init: RKNN_ERR_TARGET_PLATFORM_UNMATCH (-13)")]:
            with self.subTest(broken):
                self.bench([1], "--limit", "0.3", status=2, says=says, broken=broken)

    def test_mistakes(self):
        self.write("other.json", "[]")
        for arguments, says in [(["--parallel", "0"], "--parallel: '0' is not a number from 1 to 64"),
                                (["--seconds", "x"], "--seconds: 'x' is not a number from 0.1 to 3600"),
                                (["--compare", "none.json"], "none.json: No such file or directory"),
                                (["--compare", "other.json"], "other.json: is not what corvane bench --json writes"),
                                (["--kind", "int8"], "--kind")]:
            with self.subTest(arguments):
                self.bench([1], *arguments, status=2, says=says)


if __name__ == "__main__":
    main()
