"""Who is served: TLS with and without certificates of clients, and what the configuration must say."""

import os
import shutil
import signal
import socket
import subprocess
import tempfile
import unittest

import gnmi_pb2 as gnmi
import gnmi_pb2_grpc
import grpc

from harness import BIN, Agent, wait_until
from stand import Stream, free_port, path_of, subscribe


class Certificates:
    """Made with openssl: two authorities, and what they signed."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="gnmi-test-")
        for authority in ("ca", "other"):
            self.openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days",
                         "2", "-subj", f"/CN={authority}", "-keyout", self.path(authority, "key"), "-out",
                         self.path(authority))
        for name, authority in (("server", "ca"), ("client", "ca"), ("stranger", "other")):
            self.openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
                         f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1,IP:::1", "-keyout",
                         self.path(name, "key"), "-out", self.path(name, "csr"))
            self.openssl("x509", "-req", "-in", self.path(name, "csr"), "-CA", self.path(authority), "-CAkey",
                         self.path(authority, "key"), "-days", "2", "-copy_extensions", "copy", "-out", self.path(name))
        self.openssl("ec", "-in", self.path("server", "key"), "-aes128", "-passout", "pass:secret", "-out",
                     self.path("locked", "key"))

    @staticmethod
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], check=True, capture_output=True, stdin=subprocess.DEVNULL)

    def path(self, name, kind="pem"):
        return os.path.join(self.folder, f"{name}.{kind}")

    def read(self, name, kind="pem"):
        with open(self.path(name, kind), "rb") as file:
            return file.read()


class Tls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.certificates = Certificates()
        cls.addClassCleanup(shutil.rmtree, cls.certificates.folder)

    def configuration(self, host="127.0.0.1", port=None, **settings):
        self.port = port or free_port()
        values = {"listen": f"'{host}:{self.port}'", **settings}
        return ("feed: {source: sim, ports: 1, slots: 1}\ngnmi: {" +
                ", ".join(f"{key.replace('_', '-')}: {value}" for key, value in values.items()) + "}\n")

    def secured(self, **settings):
        return self.configuration(certificate=self.certificates.path("server"),
                                  key=self.certificates.path("server", "key"), **settings)

    def ask(self, credentials=None, host="127.0.0.1"):
        """The status of a call."""
        address = f"{host}:{self.port}"
        channel = (grpc.secure_channel(address, credentials) if credentials else grpc.insecure_channel(address))
        with channel:
            try:
                gnmi_pb2_grpc.gNMIStub(channel).Capabilities(gnmi.CapabilityRequest(), timeout=5)
                return "OK"
            except grpc.RpcError as error:
                return error.code().name

    def client(self, authority="ca", name=None):
        read = self.certificates.read
        return grpc.ssl_channel_credentials(read(authority), *((read(name, "key"), read(name)) if name else ()))

    def test_the_server_shows_its_certificate(self):
        for host in ("127.0.0.1", "[::1]"):
            with Agent(self.secured(host=host)):
                self.assertEqual(self.ask(self.client(), host), "OK")
                self.assertEqual(self.ask(self.client("other"), host), "UNAVAILABLE")
                self.assertEqual(self.ask(None, host), "UNAVAILABLE")

    def test_a_client_needs_a_certificate_of_the_authority(self):
        with Agent(self.secured(client_ca=self.certificates.path("ca"))) as agent:
            self.assertEqual(self.ask(self.client(name="client")), "OK")
            for stranger in (self.client(), self.client(name="stranger"), None):
                self.assertEqual(self.ask(stranger), "UNAVAILABLE")
            # Whoever speaks something else, or nothing, harms nobody, and fills no log.
            for _ in range(50):
                with socket.create_connection(("127.0.0.1", self.port)) as plain:
                    plain.sendall(b"GET / HTTP/1.0\r\n\r\n\x1b[31m" + os.urandom(1000))
            with socket.create_connection(("127.0.0.1", self.port)):
                self.assertEqual(self.ask(self.client(name="client")), "OK")
            self.assertLess(len(agent.lines), 20, agent.lines)
            self.assertEqual(agent.stop(), 0)

    def fails(self, configuration):
        """What the agent says when it ends at its start."""
        with tempfile.NamedTemporaryFile("w", suffix=".yaml") as file:
            file.write(configuration)
            file.flush()
            ended = subprocess.run([os.path.join(BIN, "qos-agent"), "run", file.name], capture_output=True, text=True,
                                   timeout=10, check=False)
        self.assertIn(ended.returncode, (1, 2))
        return ended.stderr

    def test_settings_that_cannot_be_followed(self):
        path = self.certificates.path
        server = path("server")
        pipe = path("pipe")
        os.mkfifo(pipe)
        for settings, text in (
                ({"insecure": "true", "host": "0.0.0.0"}, "only loopback addresses"),
                ({"insecure": "true", "host": "[::]"}, "only loopback addresses"),
                ({"insecure": "true", "host": "nobody.invalid"}, "nobody.invalid"),
                ({"certificate": path("nothing"), "key": path("nothing")}, "No such file or directory"),
                ({"certificate": path("server", "key"), "key": path("server", "key")}, "holds no certificate"),
                ({"certificate": server, "key": server}, "holds no private key"),
                ({"certificate": server, "key": path("locked", "key")}, "without a passphrase"),
                ({"certificate": server, "key": path("client", "key")}, "is not the key of the certificate"),
                ({"certificate": server, "key": path("server", "key"), "client_ca": path("server", "key")},
                 "client-ca"),
                ({"certificate": self.certificates.folder, "key": path("server", "key")}, "no regular file"),
                ({"certificate": server, "key": pipe}, "no regular file")):
            with self.subTest(text=text):
                said = self.fails(self.configuration(**settings))
                self.assertIn(text, said)
                self.assertIn("gnmi", said)
        with Agent(self.configuration(insecure="true", host="0.0.0.0", allow_remote="true")):
            self.assertEqual(self.ask(), "OK")
            self.assertIn(f":{self.port}: Address already in use",
                          self.fails(self.configuration(insecure="true", port=self.port)))

    def test_a_fault_in_new_settings_changes_nothing(self):
        with Agent(self.configuration(insecure="true")) as agent:
            port = self.port
            stub = gnmi_pb2_grpc.gNMIStub(grpc.insecure_channel(f"127.0.0.1:{port}"))
            stream = Stream(stub, subscribe(path_of("qos"))).wait_sync()
            for faulty in (self.secured(port=port).replace("server.key", "client.key"),
                           self.configuration(insecure="true", host="192.0.2.1", allow_remote="true")):
                agent.lines.clear()
                agent.configure(faulty)
                agent.process.send_signal(signal.SIGHUP)
                wait_until(lambda: agent.said("stays as it was"))
                self.port = port
                self.assertEqual(self.ask(), "OK")
            self.assertIsNone(stream.error)
            agent.configure(self.secured(port=port))
            agent.process.send_signal(signal.SIGHUP)
            wait_until(lambda: agent.said("is in force"))
            self.assertEqual(self.ask(self.client()), "OK")
            self.assertEqual(self.ask(), "UNAVAILABLE")

    def test_new_certificates_in_the_same_files(self):
        with tempfile.TemporaryDirectory() as folder:
            def install(name):
                for kind in ("pem", "key"):
                    shutil.copy(self.certificates.path(name, kind), os.path.join(folder, f"server.{kind}"))

            install("server")
            with Agent(self.configuration(certificate=f"{folder}/server.pem", key=f"{folder}/server.key")) as agent:
                stub = gnmi_pb2_grpc.gNMIStub(grpc.secure_channel(f"127.0.0.1:{self.port}", self.client()))
                stream = Stream(stub, subscribe(path_of("qos"))).wait_sync()
                for number, name in enumerate(("server", "stranger"), 1):
                    install(name)
                    agent.process.send_signal(signal.SIGHUP)
                    wait_until(lambda: len(agent.said("is in force")) == number)
                    authorities = ("ca", "other") if name == "server" else ("other", "ca")
                    self.assertEqual([self.ask(self.client(authority)) for authority in authorities],
                                     ["OK", "UNAVAILABLE"])
                    # Streams are ended for new ones only.
                    self.assertEqual(stream.error is None, name == "server")
                self.assertEqual((stream.error.code().name, stream.error.details()),
                                 ("UNAVAILABLE", "the configuration has changed"))
                os.unlink(os.path.join(folder, "server.key"))
                for number, make in enumerate((lambda name: None, os.mkfifo), 1):
                    make(os.path.join(folder, "server.key"))
                    agent.process.send_signal(signal.SIGHUP)
                    wait_until(lambda: len(agent.said("stays as it was: gnmi.key")) == number)
                    self.assertEqual(self.ask(self.client("other")), "OK")


if __name__ == "__main__":
    unittest.main()
