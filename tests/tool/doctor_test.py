"""corvane doctor: set-ups with one fault each, made of a broken runtime and made-up /proc, /sys and /dev."""
import json
import os
import re
import shutil
import subprocess

from tool_case import ONNX, PREFIX, ToolCase, main

RUNTIMES = os.environ["CORVANE_BROKEN_RUNTIMES"]
SIMULATOR = os.environ["CORVANE_SIMULATOR"]
COMPILED = PREFIX + b"RKNN\0\0\0\1 a model"
CPU = "sys/devices/system/cpu/"
SOUND = {
    CPU + "present": "0-3", CPU + "online": "0-3", CPU + "cpufreq/policy0/scaling_governor": "ondemand",
    CPU + "cpufreq/policy0/scaling_driver": "cpufreq-dt", CPU + "cpufreq/policy0/scaling_cur_freq": "600000",
    CPU + "cpufreq/policy0/scaling_max_freq": "1447200", CPU + "cpufreq/policy0/cpuinfo_max_freq": "1608000",
    "proc/cpuinfo": 4 * "processor\t: 0\nCPU part\t: 0xd04\n\n", "proc/meminfo": "MemFree: 1 kB\nMemAvailable:  262144 kB\n",
    "sys/class/thermal/thermal_zone0/temp": "45000", "sys/class/thermal/thermal_zone0/type": "cpu-thermal",
    "sys/class/thermal/thermal_zone1/temp": "40000",
    "proc/device-tree/compatible": "acme,door\0rockchip,rk1808\0", "dev/galcore": "",
}
RK3399PRO = {"proc/device-tree/compatible": "rockchip,rk3399pro-evb\0rockchip,rk3399pro\0", "dev/galcore": None,
             "proc/77/stat": "77 (npu_transfer_pr) S 1 77"}
PC = {"proc/device-tree/compatible": None, "dev/galcore": None}


def fault(level, subject, text, broken="", files=None, model=COMPILED, runtime="sound", **more):
    return dict(wanted=(level, subject, text), broken=broken, files=files or {}, model=model, runtime=runtime, **more)


def helper(state):
    return {**RK3399PRO, "proc/77/stat": state and "77 (npu_transfer_pr) %s 1 77" % state}


FAULTS = {
    "no runtime": fault("wrong", "runtime", "librknn_api.so: cannot open", runtime="none"),
    "an empty runtime": fault("wrong", "runtime", "file too short", runtime=b""),
    "a text as runtime": fault("wrong", "runtime", "invalid ELF header", runtime=b"version 1\n" * 100),
    "a runtime for another machine": fault("wrong", "runtime", "librknn_api.so", runtime="other machine"),
    "a missing function": fault("wrong", "runtime", "has no rknn_outputs_release", runtime="without_release"),
    "a later generation": fault("wrong", "runtime", "is of a later generation: it has rknn_set_io_mem", runtime="later"),
    "a crash at load": fault("wrong", "runtime", "ends the process: signal 6", "crash-load"),
    "a hang at load": fault("wrong", "runtime", "loading librknn_api.so hangs", "hang-load"),
    "the simulator on a board": fault("wrong", "runtime", "is the simulated runtime, on a board", runtime="simulator",
                                      model=None),
    "the simulator before the vendor's": fault("wrong", "runtime", "is the simulated runtime, on a board", model=None,
                                               runtime="simulator", second="sound", cure="runtime1/librknn_api.so"),
    "no device node": fault("look", "device", "/dev/galcore is missing", files={"dev/galcore": None}),
    "no permission": fault("wrong", "device", "may not be read and written", mode=0o444),
    "no helper": fault("wrong", "helper", "npu_transfer_proxy does not run", files=helper(None)),
    "a zombie as helper": fault("wrong", "helper", "is a zombie (process 77)", files=helper("Z")),
    "a stopped helper": fault("wrong", "helper", "is stopped (process 77)", files=helper("T")),
    "a later board": fault("wrong", "board", "its NPU is of a later generation",
                           files={"proc/device-tree/compatible": "rockchip,rk3588\0"}),
    "an unknown board": fault("look", "board", "is not known to have this NPU",
                              files={"proc/device-tree/compatible": "acme,toaster\0"}),
    "a core is off": fault("look", "cores", "4 x Cortex-A35, online 0-2 of 0-3", files={CPU + "online": "0-2"}),
    "a slow governor": fault("look", "clock", "policy0: powersave, now 0.60 GHz",
                             files={CPU + "cpufreq/policy0/scaling_governor": "powersave"}),
    "a low clock": fault("look", "clock", "at most 0.82 GHz of 1.61 GHz",
                         files={CPU + "cpufreq/policy0/scaling_max_freq": "816000"}),
    "warm": fault("look", "temperature", "80 degrees", files={"sys/class/thermal/thermal_zone0/temp": "80000"}),
    "hot": fault("wrong", "temperature", "95 degrees Celsius (thermal_zone2)",
                 files={"sys/class/thermal/thermal_zone2/temp": "95000"}),
    "little memory": fault("look", "memory", "64 MB", files={"proc/meminfo": "MemAvailable: 65536 kB"}),
    "no memory": fault("wrong", "memory", "63 MB", files={"proc/meminfo": "MemAvailable: 65535 kB"}),
    "no model": fault("wrong", "model", "No such file or directory", model="missing"),
    "an empty model": fault("wrong", "model", "0 bytes, no model after the prefix", model=b""),
    "only a prefix": fault("wrong", "model", "13 bytes, no model after the prefix", model=PREFIX),
    "not packed": fault("wrong", "model", "not packed: the model begins at once", model=b"RKNN and what follows"),
    "ONNX, not packed": fault("wrong", "model", "not packed: an ONNX file", model=ONNX),
    "packed twice": fault("wrong", "model", "packed twice", model=PREFIX + COMPILED),
    "not a model": fault("wrong", "model", "neither a compiled model nor ONNX", model=PREFIX + b"<html>404</html>"),
    "ONNX on the board": fault("wrong", "model", "for the simulated runtime only", model=PREFIX + ONNX),
    "a compiled model on the PC": fault("wrong", "model", "compiled for the NPU", runtime="simulator", files=PC),
    "a cut ONNX file": fault("wrong", "model", "neither a compiled model nor ONNX", runtime="simulator", files=PC,
                             model=PREFIX + ONNX[:-4], cure="copy it again"),
    "a broken model on the PC": fault("wrong", "runs", "RKNN_ERR_MODEL_INVALID (-6)", runtime="simulator", files=PC,
                                      model=PREFIX + b"CORVANE-SIM\ninput image\n"),
    "a cut model": fault("wrong", "runs", "RKNN_ERR_MODEL_INVALID (-6)", "init=-6", cure="compare checksums"),
    "another chip's model": fault("wrong", "runs", "UNMATCH (-13)", "init=-13", cure="compiled for another chip"),
    "runtime and driver differ": fault("wrong", "runs", "UNMATCH (-10)", "init=-10", cure="update both together"),
    "no NPU": fault("wrong", "runs", "UNAVAILABLE (-3)", "init=-3", cure="load its driver"),
    "another driver's model": fault("wrong", "runs", "(-11)", "init=-11", cure="compile the model again"),
    "hanging rknn_init": fault("wrong", "runs", "rknn_init has not ended in 0.5 s", "hang-init"),
    "crashing rknn_init": fault("wrong", "runs", "rknn_init ended the process: signal 6", "crash-init"),
    "a run that times out": fault("wrong", "runs", "rknn_run: RKNN_ERR_TIMEOUT (-2)", "run=-2", cure="the NPU hangs"),
    "a hanging run": fault("wrong", "runs", "a run on zeros has not ended in 0.5 s", "hang-run"),
    "a crashing run": fault("wrong", "runs", "a run on zeros ended the process: signal 6", "crash-run"),
    "a run that fails later": fault("wrong", "runs", "rknn_run: RKNN_ERR_FAIL (-1)", "late-failure=-1"),
    "answers that change": fault("wrong", "answers", "the same input gave other outputs: 1 of 12", "answers-change"),
    "NaN now and then": fault("wrong", "answers", "the same input gave other outputs: 1 of 12", "nan-sometimes"),
    "NaN": fault("look", "answers", "NaN or infinite on noise: 1 of 12", "nan"),
    "an input without effect": fault("look", "answers", "noise and zeros give the same", "deaf"),
    "growing memory": fault("look", "memory", "grows by", "leak"),
    "a stale driver": fault("wrong", "versions", "driver 1.6.0 (build: 2020): they differ", "stale-driver"),
    "a slightly older driver": fault("look", "versions", "driver 1.7.3: they differ", "older-driver"),
    "no version": fault("look", "versions", "without numbers", "no-version"),
    "other records": fault("wrong", "runs", "rknn_query(INPUT_ATTR): RKNN_ERR_PARAM_INVALID (-5)", "other-records"),
    "a tensor that does not add up": fault("wrong", "tensors", "4 dims, 13 elements, 48 bytes do not agree", "odd-tensor"),
}
SIMULATED = PREFIX + b"CORVANE-SIM\ninput image uint8 1x3x4x4\noutput echo float32 1x3x4x4 echo=0\n"
SOUND_SETUPS = {
    "an RK1808": fault("ok", "arithmetic", "are those of every machine"),
    "an RK3399Pro": fault("ok", "helper", "npu_transfer_proxy, process 77", files=RK3399PRO),
    "a PC": fault("ok", "runtime", ", the simulated runtime", runtime="simulator", files=PC, model=SIMULATED),
    "a PC of two clock domains": fault("ok", "clock", "policy0: powersave", runtime="simulator", model=None, files={
        **PC, CPU + "cpufreq/policy0/scaling_driver": "intel_pstate", CPU + "cpufreq/policy0/scaling_governor": "powersave"}),
    "a container without clocks": fault("ok", "memory", "256 MB", runtime="simulator", model=SIMULATED, files={
        name: None for name in SOUND if name != "proc/meminfo"}),
}


class DoctorTest(ToolCase):
    def doctor(self, setup):
        """The findings that are not ok, and all of them."""
        root = self.path("root")
        shutil.rmtree(root, ignore_errors=True)
        for name, text in {**SOUND, **setup["files"]}.items():
            if text is not None:
                os.makedirs(os.path.dirname(os.path.join(root, name)), exist_ok=True)
                with open(os.path.join(root, name), "w", encoding="utf-8") as file:
                    file.write(text)
        if "mode" in setup:
            os.chmod(os.path.join(root, "dev/galcore"), setup["mode"])
        folders = []
        for number, runtime in enumerate([setup["runtime"], setup.get("second", "none")]):
            folders.append(self.path("runtime%d" % number))
            shutil.rmtree(folders[-1], ignore_errors=True)
            os.makedirs(folders[-1])
            target = os.path.join(folders[-1], "librknn_api.so")
            if isinstance(runtime, bytes):
                self.write(target, runtime)
            elif runtime == "simulator":
                shutil.copy(SIMULATOR, target)
            elif runtime == "other machine":
                with open(os.path.join(RUNTIMES, "sound", "librknn_api.so"), "rb") as file:
                    data = file.read()
                self.write(target, data[:18] + b"\x08\0" + data[20:])  # MIPS
            elif runtime != "none":
                shutil.copy(os.path.join(RUNTIMES, runtime, "librknn_api.so"), target)
        command = [*self.emulator, self.tool, "doctor", "--root", root, "--json", "report.json", "--limit", "0.5"]
        if setup["model"] is not None:
            command.append("missing" if setup["model"] == "missing" else self.write("model.bin", setup["model"]))
        user = {"user": 65534} if os.getuid() == 0 and "mode" in setup else {}
        if user:
            os.chmod(self.folder.name, 0o777)
        environment = {**os.environ, "LD_LIBRARY_PATH": ":".join(folders), "BROKEN": setup["broken"],
                       "CORVANE_SIM_ENGINE": "opencv", "ASAN_OPTIONS": "handle_abort=0"}
        done = subprocess.run(command, cwd=self.folder.name, env=environment, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=60, check=False, **user)
        with open(self.path("report.json"), encoding="utf-8") as file:
            report = json.load(file)
        os.remove(self.path("report.json"))
        self.assertEqual(done.returncode, ["ok", "look", "wrong"].index(report["worst"]), done.stderr)
        for finding in report["findings"]:
            line = r"^%s +%s +%s$" % (finding["level"], finding["subject"], re.escape(finding["text"]))
            self.assertRegex(done.stdout.decode(), re.compile(line, re.M))
            self.assertEqual(finding["cure"] == "", finding["level"] == "ok", finding)
        return [finding for finding in report["findings"] if finding["level"] != "ok"], report["findings"]

    def setUp(self):
        super().setUp()
        # A copy that finds no runtime by itself.
        with open(self.programs[0], "rb") as file:
            data = file.read()
        own = os.path.dirname(SIMULATOR).encode()
        self.tool = self.write("corvane", data.replace(own, b"/" + b"-" * (len(own) - 1)))
        os.chmod(self.tool, 0o755)

    def test_each_fault_is_named_and_nothing_else(self):
        self.assertGreaterEqual(len(FAULTS), 40)
        for name, setup in FAULTS.items():
            with self.subTest(name):
                found, _ = self.doctor(setup)
                self.assertEqual([(finding["level"], finding["subject"]) for finding in found], [setup["wanted"][:2]], found)
                self.assertIn(setup["wanted"][2], found[0]["text"])
                self.assertIn(setup.get("cure", ""), found[0]["cure"])

    def test_no_alarm_where_all_is_well(self):
        for name, setup in SOUND_SETUPS.items():
            with self.subTest(name):
                found, all_findings = self.doctor(setup)
                self.assertEqual(found, [])
                level, subject, text = setup["wanted"]
                self.assertTrue(any(finding["level"] == level and finding["subject"] == subject and text in finding["text"]
                                    for finding in all_findings), all_findings)

    def test_mistakes(self):
        self.corvane("doctor", "--limit", "0", status=2, says="--limit: '0' is not a number from 0.1 to 3600")
        self.corvane("doctor", "--json", "no/such/folder", status=2, says="no/such/folder")


if __name__ == "__main__":
    main()
