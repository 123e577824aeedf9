"""What the rows are made of: a host in a process of its own, a server that says exactly what it is
told, and a wire between the two that can be cut, slowed and silenced."""

import concurrent.futures, contextlib, os, re, socket, ssl, sqlite3, struct, subprocess, tempfile, threading, time
from types import SimpleNamespace

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
PATIENCE = 100  # Seconds; only ever used up by a hang. Longer than any limit of Kivo's, twice.
OUTCOME = re.compile(
    r'^(SDK Initialized successfully: |setUser successfully: |updateDeviceToken successfully: |'
    r'updateNotificationPermission successfully: |unsetUser successfully: |Successfully hit the image|'
    r'Failed to (initialize SDK|setUser|updateDeviceToken|unsetUser): |Failed to hit the image|'
    r'Failed to retrieve image URL|Invalid URL: |Error hitting image URL: )', re.M)
EVERYTHING = 7  # Outcome lines of the host's "everything".
place = SimpleNamespace(children=[])
rows = []


class Skip(Exception):
    """Says why a row cannot be run here."""


def row(name, done, expected, short=1, long=None):
    """Enters a row: its function gets how often, and returns what was seen and whether that is right."""
    def enter(function):
        rows.append(SimpleNamespace(name=name, done=done, expected=expected, function=function,
                                    short=short, long=long or short))
        return function
    return enter


def prepare(builds):
    place.build, place.tsan, place.asan = builds.build, builds.tsan, builds.asan
    place.work = tempfile.mkdtemp(prefix='kivo-torture-')
    place.shim, place.cert, key = (os.path.join(place.work, n) for n in ('shim.so', 'c.pem', 'k.pem'))
    subprocess.run(['cc', '-shared', '-fPIC', '-O1', f'{HERE}/shim.c', '-o', place.shim, '-ldl'], check=True)
    make_certificate(place.cert, key, 'DNS:localhost,DNS:two.example,IP:127.0.0.1,IP:::1')
    place.wrong_name = os.path.join(place.work, 'wrong.pem')
    make_certificate(place.wrong_name, key + '2', 'DNS:elsewhere.example')


def make_certificate(cert, key, names):
    subprocess.run(['openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes',
                    '-days', '30', '-subj', '/CN=kivo torture', '-addext', 'subjectAltName=' + names,
                    '-keyout', key, '-out', cert], check=True, stderr=subprocess.DEVNULL)
    with open(cert, 'a') as both, open(key) as secret: both.write(secret.read())


def home():
    return tempfile.mkdtemp(dir=place.work)


def start(commands, server=None, at=None, build=None, shim=None, around=(), stdout=subprocess.PIPE, **variables):
    """Starts a host. `around` are the words of a program that starts it; None removes a variable."""
    at = at or home()
    env = {'PATH': os.environ['PATH'], 'HOME': at, 'SSL_CERT_FILE': place.cert}
    if server: env['https_proxy'] = f'http://127.0.0.1:{server.port}'
    if shim is not None: env |= {'LD_PRELOAD': place.shim} | shim
    env = {k: str(v) for k, v in (env | variables).items() if v is not None}
    program = f'{build or place.build}/tests/kivo-test-host'
    process = subprocess.Popen([*around, program, 'name', *commands.split()], env=env, cwd=at, text=True,
                               stdin=subprocess.PIPE, stdout=stdout, stderr=subprocess.PIPE, errors='replace')
    process.home, process.heard = at, ''
    return process


def finish(process, line=None, patience=PATIENCE):
    began = time.monotonic()
    try:
        output, errors = process.communicate(line, timeout=patience)
    except subprocess.TimeoutExpired:
        process.kill()
        output, errors = process.communicate()
        errors = (errors or '') + 'HANGS'
    output = process.heard + (output or '')
    return SimpleNamespace(status=process.returncode, output=output, errors=errors,
                           seconds=time.monotonic() - began, home=process.home,
                           outcomes=len(OUTCOME.findall(output)))


def go_on(process, meanwhile=lambda _: None):
    """Waits until a host pauses, does something, lets the host go on."""
    await_line(process, 'paused')
    result = meanwhile(process)
    process.stdin.write('\n')
    process.stdin.flush()
    return result


def host(commands, *arguments, patience=PATIENCE, **more):
    return finish(start(commands, *arguments, **more), patience=patience)


def brief(*all_ended):
    return [(e.status, e.outcomes, round(e.seconds, 1), e.errors[-200:]) for e in all_ended]


def is_clean(ended):
    return ended.status == 0 and ended.errors == ''


def told(cases, what='bad', most=4):
    """How many there are, and some of them."""
    return f'{len(cases)} {what}' + (f' {sorted(cases)[:most]}' if cases else '')


def reply(body='{"success":true,"message":"ok","data":{"message":"ok"}}', status=200, extra=''):
    data = body.encode() if isinstance(body, str) else body
    return (f'HTTP/1.1 {status} X\r\nContent-Type: application/json\r\nContent-Length: {len(data)}\r\n'
            f'{extra}\r\n').encode() + data


def silence(connection):
    """Says nothing until the client goes away."""
    with contextlib.suppress(OSError):
        while connection.recv(4096): pass


class Server:
    """Speaks TLS, plain HTTP and, as the host's proxy, for every name. `script` maps the ends of paths
    to replies: bytes, what gives bytes for a request, or what is given the connection and then closes it."""

    def __init__(self, script=None, cert=None, at='127.0.0.1', handshakes=True):
        self.script, self.requests, self.issued, self.lock = script or {}, [], 0, threading.Lock()
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(cert or place.cert)
        self.handshakes = handshakes
        self.listener = socket.create_server((at, 0), family=socket.AF_INET6 if ':' in at else socket.AF_INET, backlog=256)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=self.serve, args=(self.listener.accept()[0],), daemon=True).start()

    def serve(self, plain):
        plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        connection, authority = plain, ''
        with contextlib.suppress(OSError, ValueError, IndexError), plain:
            while True:
                if connection is plain and plain.recv(1, socket.MSG_PEEK) == b'\x16':
                    if not self.handshakes: return silence(plain)
                    connection = self.context.wrap_socket(plain, server_side=True)
                request = self.read(connection, authority)
                if request.method == 'CONNECT':
                    authority = request.path
                    connection.sendall(b'HTTP/1.1 200 OK\r\n\r\n')
                elif self.answer(request, connection): break
            connection.close()

    def read(self, connection, authority):
        data = b''
        while b'\r\n\r\n' not in data:
            more = connection.recv(65536)
            if not more: raise OSError('gone')
            data += more
        head, body = data.split(b'\r\n\r\n', 1)
        first, *lines = head.decode('latin1').split('\r\n')
        headers = {k.lower(): v.strip() for k, v in (line.split(':', 1) for line in lines)}
        while len(body) < int(headers.get('content-length', 0)): body += connection.recv(65536)
        method, path, _ = first.split(' ')
        return SimpleNamespace(method=method, path=path, headers=headers, body=body, authority=authority,
                               time=time.monotonic(), size=len(head) + len(body))

    def answer(self, request, connection):
        with self.lock: self.requests.append(request)
        found = max((end for end in self.script if request.path.endswith(end)), key=len, default=None)
        answer = self.script[found] if found is not None else self.usual(request)
        if callable(answer): answer = answer(request, connection)
        if answer is None: return True
        connection.sendall(answer)
        return False

    def usual(self, request):
        """Tokens are numbered in the order in which they were issued."""
        with self.lock:
            self.issued += 1
            number = self.issued
        if request.path.endswith('sdk/authenticate'):
            return envelope(f'{{"merchantToken":"m-{number}","sessionId":"s-{number}"}}')
        if request.path.endswith('user/authenticate'): return envelope(f'{{"userToken":"u-{number}"}}')
        return reply()

    def count(self, end):
        with self.lock: return sum(r.path.endswith(end) for r in self.requests)

    def close(self):
        self.listener.close()


def envelope(data, success='true'):
    return reply(f'{{"success":{success},"message":"ok","data":{data}}}')


def hang(_, connection):
    silence(connection)


class Wire:
    """A proxy that hands bytes on, `delay` seconds late and at most `rate` a second; of what the server
    says it hands on `cut` bytes, then does what `then` says: "reset", "close" or "silence"."""

    def __init__(self, server, cut=None, then='reset', delay=0, rate=None, only_first=False, connects=False):
        self.connects, self.port_beyond, self.cut, self.then, self.delay, self.rate = connects, server.port, cut, then, delay, rate
        self.only_first, self.connections = only_first, 0
        self.listener = socket.create_server(('127.0.0.1', 0), backlog=256)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                here, beyond = self.listener.accept()[0], socket.create_connection(('127.0.0.1', self.port_beyond))
                self.connections += 1
                if self.connects: here.recv(65536), here.sendall(b'HTTP/1.1 200 OK\r\n\r\n')
                cut = self.cut if not (self.only_first and self.connections > 1) else None
                for args in ((here, beyond, None), (beyond, here, cut)):
                    threading.Thread(target=self.pump, args=args, daemon=True).start()

    def pump(self, source, target, left):
        with contextlib.suppress(OSError):
            while data := source.recv(2048 if self.rate else 65536):
                if self.delay: time.sleep(self.delay)
                if self.rate: time.sleep(len(data) / self.rate)
                if left is not None and len(data) >= left:
                    target.sendall(data[:left])
                    return self.end(source, target)
                left = left - len(data) if left is not None else None
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def end(self, source, target):
        if self.then == 'silence': return silence(source)
        if self.then == 'reset': target.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
        target.shutdown(socket.SHUT_RD if self.then == 'reset' else socket.SHUT_RDWR)  # Wakes the other pump.
        target.close()


def defaults(at, name='com.example.tests'):
    """What is on disk, by key."""
    file = f'{at}/.local/state/kivo/{name}/defaults.db'
    with contextlib.closing(sqlite3.connect(file, timeout=10)) as database:
        return dict(database.execute('SELECT key, value FROM defaults'))


def keychain_file(at):
    os.makedirs(f'{at}/.local/share/kivo', exist_ok=True)
    return f'{at}/.local/share/kivo/keychain.db'


def defaults_file(at):
    os.makedirs(f'{at}/.local/state/kivo/com.example.tests', exist_ok=True)
    return f'{at}/.local/state/kivo/com.example.tests/defaults.db'


def nginx():
    """A foreign peer that speaks HTTP/2 and answers everything with both kinds of token."""
    at, port = home(), 0
    with socket.create_server(('127.0.0.1', 0)) as free: port = free.getsockname()[1]
    with open(f'{at}/nginx.conf', 'w') as conf: conf.write(
        f'daemon off; error_log stderr crit; pid {at}/pid; events {{}} http {{ access_log off; server {{ listen 127.0.0.1:{port} '
        f'ssl http2; ssl_certificate {place.cert}; ssl_certificate_key {place.cert}; keepalive_requests 1000000; location / {{ '
        'return 200 \'{"success":true,"message":"ok","data":{"merchantToken":"m-1","sessionId":"s-1","userToken":"u-2",'
        '"message":"ok"}}\'; } } }')
    process = subprocess.Popen(['nginx', '-c', f'{at}/nginx.conf', '-p', at], stderr=subprocess.DEVNULL)
    place.children.append(process)
    while process.poll() is None:
        with contextlib.suppress(OSError): return socket.create_connection(('127.0.0.1', port)).close() or SimpleNamespace(port=port)
        time.sleep(0.02)
    raise Skip('nginx does not start')


@contextlib.contextmanager
def small_disk(size='256k'):
    at = home()
    mounted = subprocess.run(['mount', '-t', 'tmpfs', '-o', f'size={size}', 'none', at], capture_output=True)
    if mounted.returncode: raise Skip('needs the right to mount')
    try: yield at
    finally: subprocess.run(['umount', '-l', at])


def await_line(process, text):
    """Reads the host's lines up to one that begins so; returns it, or "" when the host ends before."""
    lines = []
    for line in process.stdout:
        lines.append(line)
        if line.startswith(text): break
    process.heard += ''.join(lines)
    return lines[-1] if lines and lines[-1].startswith(text) else ''


def in_parallel(function, values, at_once=8):
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool: return list(pool.map(function, values))
