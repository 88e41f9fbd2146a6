#!/usr/bin/env python3
"""A gNMI client that subscribes to a path each second and prints the number of updates of each notification.

usage: gnmi_stream.py HOST:PORT ALIAS [json_ietf|proto]
"""

import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))


def load_stubs():
    """The messages and the service, from the file that users have."""
    folder = tempfile.mkdtemp(prefix="gnmi-")
    subprocess.run(["protoc", "-I", os.path.join(HERE, "../devhost/gnmi"), f"--python_out={folder}",
                    f"--grpc_python_out={folder}", "--plugin=protoc-gen-grpc_python=/usr/bin/grpc_python_plugin",
                    "gnmi.proto"], check=True)
    sys.path.insert(0, folder)


load_stubs()
import gnmi_pb2 as gnmi  # noqa: E402
import gnmi_pb2_grpc  # noqa: E402
import grpc  # noqa: E402


def main():
    address, alias = sys.argv[1:3]
    encoding = gnmi.Encoding.Value((sys.argv[3] if len(sys.argv) > 3 else "json_ietf").upper())
    container = alias + "s"
    path = gnmi.Path(elem=[gnmi.PathElem(name=name) for name in ("qos", "global-query", container, alias)])
    request = gnmi.SubscribeRequest(subscribe=gnmi.SubscriptionList(
        subscription=[gnmi.Subscription(path=path, mode=gnmi.SAMPLE, sample_interval=1_000_000_000)],
        mode=gnmi.SubscriptionList.STREAM, encoding=encoding))
    with grpc.insecure_channel(address) as channel:
        for response in gnmi_pb2_grpc.gNMIStub(channel).Subscribe(iter([request])):
            if response.update.update:
                print(len(response.update.update), flush=True)


if __name__ == "__main__":
    main()
