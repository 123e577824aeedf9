"""Holds docs/openapi against what kivo-dev really answers and a real host really sends, both ways.

Runs under `kivo-dev run --show-secrets`, with the environment variables KIVO_HOST and KIVO_OPENAPI.
"""

import contextlib
import http.client
import json
import os
import pathlib
import re
import socket
import ssl
import subprocess
import time
import unittest

import jsonschema
import yaml

PATIENCE = 20
FOLDER = pathlib.Path(os.environ["KIVO_OPENAPI"])
ADMIN_PORT = int(os.environ["KIVO_DEV_ADMIN_PORT"])
# What the admin requests with a body are tried with, in the order in which they make sense.
ADMIN_BODIES = {
    "addFault": {"rule": "img:status=404"},
    "setLatency": {"latency": "1ms+-1"},
    "addImage": "not really an image",
    "checkExpectation": {"words": ["user/unset", "status=200"]},
    "expire": {"kind": "all"},
    "clearFaults": {},
}
HOST_COMMANDS = (
    "initialise an-api-key",
    "user 40 - ana@example.com Ana",
    "device-token a-device-token",
    "consent yes",
    "unset",
)


class Description:
    """An OpenAPI file, and which of its answers were seen."""

    def __init__(self, name):
        self.document = yaml.safe_load((FOLDER / name).read_text())
        self.operations = {}
        for path, methods in self.document["paths"].items():
            for method, operation in methods.items():
                self.operations[operation["operationId"]] = (method.upper(), path, operation)
        self.answers = {
            (name, int(status))
            for name, (_, _, operation) in self.operations.items()
            for status in operation["responses"]
        }
        self.seen = set()

    def resolve(self, value):
        while "$ref" in value:
            place = self.document
            for step in value["$ref"].removeprefix("#/").split("/"):
                place = place[step]
            value = place
        return value

    def check(self, value, schema):
        whole = {**schema, "components": self.document["components"]}
        jsonschema.Draft202012Validator(whole).validate(value)

    def content(self, name, status, media_type):
        response = self.resolve(self.operations[name][2]["responses"][str(status)])
        return response["content"][media_type.split(";")[0]]

    def check_answer(self, name, status, headers, body):
        """Fails unless the status, the media type and the body are as described."""
        content = self.content(name, status, headers["Content-Type"])
        is_json = headers["Content-Type"] == "application/json"
        self.check(json.loads(body) if is_json else body, content["schema"])
        response = self.resolve(self.operations[name][2]["responses"][str(status)])
        for header, expected in response.get("headers", {}).items():
            self.check(headers[header], expected["schema"])
        self.seen.add((name, status))

    def body_schema(self, name):
        content = self.operations[name][2]["requestBody"]["content"]
        return self.resolve(next(iter(content.values()))["schema"])

    def parameters(self, name):
        return [self.resolve(each) for each in self.operations[name][2]["parameters"]]


def ask(method, target, headers=(), body=None):
    connection = http.client.HTTPConnection("localhost", ADMIN_PORT, timeout=PATIENCE)
    text = body if body is None or isinstance(body, str) else json.dumps(body)
    connection.request(method, target, text, dict(headers))
    return connection, connection.getresponse()


def answer(*request, **options):
    connection, reply = ask(*request, **options)
    with contextlib.closing(connection):
        return reply.status, reply.headers, reply.read().decode()


def ask_json(target):
    return json.loads(answer("GET", target)[2])


def wait_for(find):
    """What `find` returns once it is something: the backend tells of a request after its reply."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        if found := find():
            return found
        time.sleep(0.01)
    raise AssertionError("nothing came")


def run_host():
    subprocess.run(
        [os.environ["KIVO_HOST"]],
        input="\n".join(HOST_COMMANDS),
        text=True,
        stdout=subprocess.DEVNULL,
        check=True,
    )


def make_other_entries():
    """A failed handshake, and a connection to a host that is not answered here."""
    with socket.create_server(("localhost", 0)) as elsewhere:
        proxy = os.environ["https_proxy"].removeprefix("http://").rstrip("/").split(":")
        connection = http.client.HTTPConnection(*proxy, timeout=PATIENCE)
        connection.set_tunnel("localhost", elsewhere.getsockname()[1])
        connection.connect()
        connection.close()
    address = ask_json("/state")["baseUrl"].split("/")[2].split(":")
    trusts_nobody = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    with socket.create_connection(address) as plain, contextlib.suppress(ssl.SSLError):
        trusts_nobody.wrap_socket(plain, server_hostname=address[0])
    wait_for(lambda: ask_json("/state")["totals"]["failedHandshakes"])


class AdminTest(unittest.TestCase):
    admin = Description("admin.yaml")

    @classmethod
    def setUpClass(cls):
        run_host()
        make_other_entries()

    def target_of(self, path):
        return path.replace("{file}", "main.js") + ("?file=a.png" if path == "/images" else "")

    def try_as(self, name, body=None, headers=(), target=None):
        method, path, _ = self.admin.operations[name]
        return answer(method, target or self.target_of(path), headers=headers, body=body)

    def events(self, name, headers=()):
        """The first event of each kind, by kind."""
        connection, reply = ask("GET", "/events", headers=headers)
        with contextlib.closing(connection):
            content = self.admin.content(name, reply.status, reply.headers["Content-Type"])
            schemas = content["x-events"] | {"id": {"$ref": "#/components/schemas/EventId"}}
            found, kind = {}, "message"
            while len(found) < len(content["x-events"]):
                field, _, value = reply.readline().decode().rstrip("\n").partition(": ")
                if field == "event":
                    kind = value
                elif field == "id":
                    self.admin.check(value, schemas["id"])
                elif field == "data":
                    self.admin.check(json.loads(value), schemas[kind])
                    found.setdefault(kind, json.loads(value))
                    kind = "message"
            self.admin.seen.add((name, reply.status))
            return found

    def test_every_answer_is_as_described_and_every_description_is_answered(self):
        for name, body in ADMIN_BODIES.items():
            if not isinstance(body, str):
                self.admin.check(body, self.admin.body_schema(name))
            self.admin.check_answer(name, *self.try_as(name, body))
            if name == "checkExpectation":
                state = json.loads(self.try_as("state")[2])
                self.assertTrue(all(state[part] for part in ("sessions", "images", "faults")))
                self.admin.check_answer("state", *self.try_as("state"))
                self.admin.check_answer("faults", *self.try_as("faults"))
        for name in ("requests", "page", "pageFile"):
            self.admin.check_answer(name, *self.try_as(name))
        kinds = {entry["kind"] for entry in self.events("events")["message"]["entries"]}
        self.admin.check_answer("reset", *self.try_as("reset"))
        kinds |= {entry["kind"] for entry in self.events("events")["message"]["entries"]}
        schemas = self.admin.document["components"]["schemas"]
        self.assertEqual(kinds, set(schemas["Entry"]["properties"]["kind"]["enum"]))
        self.admin.check_answer("pageFile", *self.try_as("pageFile", target="/absent.js"))
        self.refuse_all()
        self.assertEqual(self.admin.seen, self.admin.answers)

    def refuse_all(self):
        foreign = {"Origin": "http://evil.example"}
        for name, status in sorted(self.admin.answers):
            if status == 403:
                self.admin.check_answer(name, *self.try_as(name, headers=foreign))
            elif status == 400:
                body = "" if name == "addImage" else "[]"
                target = "/requests?after=x" if name == "requests" else None
                self.admin.check_answer(name, *self.try_as(name, body, target=target))
        self.refuse_a_follower()

    def refuse_a_follower(self):
        """One that has left keeps its place for a moment, so the first may already be refused."""
        with contextlib.ExitStack() as followers:
            for _ in range(33):
                reply = ask("GET", "/events")[1]
                followers.enter_context(contextlib.closing(reply))
                if reply.status != 200:
                    break
            else:
                self.fail("no follower is refused")
            self.admin.check_answer("events", reply.status, reply.headers, reply.read().decode())

    def test_every_admin_request_is_described(self):
        message = json.loads(answer("GET", "/absent")[2])["message"]
        known = set(re.findall(r"([A-Z]+) (/\S*?)[,;]", message.partition("known are")[2] + ";"))
        described = {(method, path) for method, path, _ in self.admin.operations.values()}
        self.assertEqual(known | {("GET", "/{file}")}, described)

    def test_no_answer_may_have_what_is_not_described(self):
        def objects(value):
            for inner in value.values() if isinstance(value, dict) else value:
                if isinstance(inner, (dict, list)):
                    yield from objects(inner)
            if isinstance(value, dict) and value.get("type") == "object":
                yield value

        for schema in objects(self.admin.document["components"]["schemas"]):
            self.assertIn("additionalProperties", schema)
            self.assertEqual(schema.get("required", []), list(schema.get("properties", {})))


class BackendTest(unittest.TestCase):
    backend = Description("backend.yaml")

    @classmethod
    def setUpClass(cls):
        answer("POST", "/reset")
        run_host()
        count = len(cls.backend.operations)
        wait_for(lambda: len(ask_json("/requests")["requests"]) == count)
        cls.sent = ask_json("/requests")["requests"]
        cls.newest = cls.sent[-1]["number"]
        address = ask_json("/state")["baseUrl"].split("/")[2]
        trusting = ssl.create_default_context()
        cls.connection = http.client.HTTPSConnection(address, timeout=PATIENCE, context=trusting)
        cls.addClassCleanup(cls.connection.close)

    def send(self, name, headers, body):
        """Sends a request in place of one as described; the journal's entry about it."""
        method, path, _ = self.backend.operations[name]
        self.connection.request(method, path, json.dumps(body), headers)
        reply = self.connection.getresponse()
        self.backend.check_answer(name, reply.status, reply.headers, reply.read())
        entry = wait_for(lambda: ask_json(f"/requests?after={self.newest}")["requests"])[0]
        self.newest = entry["number"]
        return entry

    def named(self, entry):
        wanted = (entry["method"], entry["target"])
        for name, (method, path, _) in self.backend.operations.items():
            if (method, path) == wanted:
                return name
        raise AssertionError(f"{wanted} is not described")

    def test_what_a_host_sends_is_as_described(self):
        self.assertEqual({self.named(entry) for entry in self.sent}, set(self.backend.operations))
        for entry in self.sent:
            name = self.named(entry)
            headers = {key.lower(): value for key, value in entry["request"]["headers"]}
            for parameter in self.backend.parameters(name):
                self.backend.check(headers[parameter["name"]], parameter["schema"])
            self.backend.check(json.loads(entry["request"]["body"]), self.backend.body_schema(name))
            needs_token = bool(self.backend.operations[name][2]["security"])
            self.assertEqual("authorization" in headers, needs_token, name)

    def test_the_backend_accuses_what_is_not_as_described_and_nothing_else(self):
        for entry in self.sent:
            name = self.named(entry)
            schema = self.backend.body_schema(name)
            body = {key: value["examples"][0] for key, value in schema["properties"].items()}
            headers = {"Content-Type": "application/json"}
            for parameter in self.backend.parameters(name):
                headers[parameter["name"]] = parameter["schema"].get("const", "text")
            headers |= {k: v for k, v in entry["request"]["headers"] if k == "Authorization"}
            self.assertEqual(self.send(name, headers, body)["violations"], [], name)
            for header in headers:
                rest = {key: value for key, value in headers.items() if key != header}
                self.assertTrue(self.send(name, rest, body)["violations"], (name, header))
            wrong = [{other: body[other] for other in body if other != key} for key in body]
            for near_miss in [*wrong, body | {"more": ""}]:
                self.assertTrue(self.send(name, headers, near_miss)["violations"], near_miss)
                with self.assertRaises(jsonschema.ValidationError):
                    self.backend.check(near_miss, schema)
        self.assertEqual(self.backend.seen, self.backend.answers)


if __name__ == "__main__":
    unittest.main()
