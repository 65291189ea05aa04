# SPDX-License-Identifier: MIT
"""A bench of simulated probes and a run of quobe-line on it, for the tests here and script/line-campaign."""

import json
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

LIMIT_S = 100


class Station:
    """A home and a bench, as one host has them."""

    def __init__(self, build, folder, fast=True):
        self.dir = folder
        self.sim = os.path.join(build, "sim")
        self.env = {name: value for name, value in os.environ.items()
                    if not name.startswith(("QUOBE_", "PARALLEL"))}
        self.env.update(HOME=os.path.join(folder, "home"), QUOBE_BENCH=os.path.join(folder, "bench"))
        if fast:
            self.env["QUOBE_BENCH_TIME"] = "fast"
        os.makedirs(self.env["HOME"])

    def bench(self, *words, expect=(0,)):
        done = subprocess.run([os.path.join(self.sim, "quobe-bench"), *map(str, words)], env=self.env,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=LIMIT_S,
                              universal_newlines=True)
        if done.returncode not in expect:
            raise AssertionError("quobe-bench %s: %s" % (" ".join(map(str, words)), done.stdout))
        return done

    def create(self, probe, device, *state, **settings):
        self.bench("create", "--probe", probe, device, *state)
        if settings:
            self.bench("set", "--probe", probe, *("%s=%s" % pair for pair in settings.items()))

    def at_factory(self, probe):
        return self.bench("show", "--probe", probe, "--expect-factory", expect=(0, 1)).returncode == 0

    def left(self, probe):
        """What the simulator finds away from factory state."""
        shown = self.bench("show", "--probe", probe, "--expect-factory", expect=(0, 1)).stdout
        return [line.strip() for line in shown.partition("Not at factory state:\n")[2].splitlines()]


class Run:
    """What a finished run said and wrote."""

    def __init__(self, status, output, errors, log):
        self.status, self.output, self.errors, self.log = status, output, errors, log

    def attempts(self, unit):
        try:
            with open(os.path.join(self.log, "units", unit + ".jsonl")) as file:
                return [json.loads(line) for line in file]
        except FileNotFoundError:
            return []

    def verdicts(self):
        """{unit: verdict} by the table at the end."""
        lines = self.output.splitlines()
        begin = next(i for i, line in enumerate(lines) if re.match(r"unit +verdict ", line))
        end = next(i for i, line in enumerate(lines) if re.match(r"[0-9]+ units: ", line))
        return {line.split()[0]: line.split()[1] for line in lines[begin + 1:end]}


class Line:
    """Starts quobe-line for one station."""

    def __init__(self, build, station, tools=None):
        self.station = station
        self.program = os.path.join(tools or os.path.join(build, "sim"), "quobe-line")

    def write(self, name, text):
        path = os.path.join(self.station.dir, name)
        with open(path, "w") as file:
            file.write(text)
        return path

    def units(self, *rows, columns="unit,family,probe"):
        return self.write("units.csv", "\n".join((columns,) + rows) + "\n")

    def start(self, *arguments, log="log"):
        command = [self.program, *map(str, arguments)]
        if log:
            command += ["--log", os.path.join(self.station.dir, log)]
        return subprocess.Popen(command, env=self.station.env, cwd=self.station.dir,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, universal_newlines=True,
                                start_new_session=True)

    def end(self, process, log="log", limit=LIMIT_S):
        try:
            output, errors = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            raise AssertionError("quobe-line did not end: %s" % (process.communicate(),)) from None
        return Run(process.returncode, output, errors, os.path.join(self.station.dir, log or "."))

    def run(self, *arguments, log="log", limit=LIMIT_S):
        return self.end(self.start(*arguments, log=log), log, limit)


def copy_tools(build, folder):
    """A folder of its own with all programs, in which a test can replace some."""
    sim = os.path.join(build, "sim")
    os.makedirs(folder)
    for name in ("quobe-line", "quobe-unlock", "quobe-options", "libquobearm.dylib"):
        shutil.copy(os.path.join(sim, name), folder)
    shutil.copytree(os.path.join(sim, "quobe_line"), os.path.join(folder, "quobe_line"))
    return folder


def replace_program(folder, name, text):
    """Puts a shell script in place of a program, which it can call as $REAL."""
    path = os.path.join(folder, name)
    os.rename(path, path + ".real")
    with open(path, "w") as file:
        file.write('#!/bin/sh\nREAL="%s.real"\n%s' % (path, text))
    os.chmod(path, 0o755)


def free_port():
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


class Sshd:
    """An ssh server on the loopback, with keys of its own, that leads to a station."""

    @staticmethod
    def missing():
        """Why there can be none, or None."""
        for name in ("sshd", "ssh", "ssh-keygen"):
            if not Sshd.find(name):
                return "no %s on this machine (openssh-server)" % name
        return None

    @staticmethod
    def find(name):
        return shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin:/usr/local/sbin")

    def __init__(self, station, name):
        self.station = station
        # Blanks in a path end an entry of sshd's configuration.
        self.dir = tempfile.mkdtemp(prefix="quobe-sshd-", dir="/tmp")
        self.port = free_port()
        for key in ("host", "user"):
            subprocess.run([self.find("ssh-keygen"), "-q", "-t", "ed25519", "-N", "", "-f", self.file(key)],
                           check=True, timeout=LIMIT_S, stdin=subprocess.DEVNULL)
        shutil.copy(self.file("user.pub"), self.file("authorized"))
        with open(self.file("host.pub")) as file:
            known = "[127.0.0.1]:%d %s" % (self.port, file.read())
        with open(self.file("known"), "w") as file:
            file.write(known)
        variables = ["HOME", "QUOBE_BENCH", "QUOBE_BENCH_TIME"]
        with open(self.file("config"), "w") as file:
            file.write("Port %d\nListenAddress 127.0.0.1\nHostKey %s\nPidFile none\n"
                       "AuthorizedKeysFile %s\nStrictModes no\nUsePAM no\nMaxStartups 50\n"
                       "PasswordAuthentication no\nSetEnv %s\n" % (
                           self.port, self.file("host"), self.file("authorized"),
                           " ".join('"%s=%s"' % (variable, station.env[variable])
                                    for variable in variables if variable in station.env)))
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", mode=0o755, exist_ok=True)  # what starts the server makes it otherwise
        self.process = subprocess.Popen([self.find("sshd"), "-D", "-f", self.file("config"), "-E",
                                         self.file("log")], stdin=subprocess.DEVNULL)
        self.row = '%s,"%s",%s' % (name, self.ssh(), station.sim)
        give_up = time.monotonic() + 20
        while time.monotonic() < give_up:
            if subprocess.run(["sh", "-c", self.ssh() + " true"], stderr=subprocess.DEVNULL,
                              stdin=subprocess.DEVNULL, timeout=LIMIT_S).returncode == 0:
                return
            time.sleep(0.1)
        with open(self.file("log")) as file:
            raise AssertionError("sshd does not answer: " + file.read())

    def ssh(self):
        return ("ssh -F none -o BatchMode=yes -o IdentitiesOnly=yes -o UserKnownHostsFile=%s -i %s -p %d "
                "127.0.0.1" % (self.file("known"), self.file("user"), self.port))

    def file(self, name):
        return os.path.join(self.dir, name)

    def stop(self):
        self.process.kill()
        self.process.wait()
        shutil.rmtree(self.dir)
