"""What a server, a network and a redirect may do."""

import os, re, socket, struct, subprocess, threading, time, zlib

from harness import *

OK = 'updateDeviceToken successfully: '
NO = 'Failed to updateDeviceToken: '


def for_ever(connection, start, more):
    connection.sendall(start)
    while True: connection.sendall(more)


def drip(request, connection):
    """One byte a second of a good reply, never the last."""
    for byte in reply()[:60]:
        connection.sendall(bytes([byte]))
        time.sleep(1)
    silence(connection)


def partly(count, end=True):
    def answer(request, connection):
        connection.sendall(reply()[:count])
        if not end: silence(connection)
    return answer


def twice(request, connection):
    connection.sendall(reply() + reply('{"success":true,"message":"second","data":null}'))


def zipped(size):
    return lambda *_: reply(zlib.compress(b'{"message":"' + b'x' * size, 9), extra='Content-Encoding: deflate\r\n')


# What the server answers to a device token, and the line it ends in.
REPLIES = {
    'nothing': (lambda *_: None, NO),
    'reset': (lambda _, c: reset(c.unwrap()), NO),
    'status line only': (partly(15), NO), 'half the headers': (partly(30), NO), 'half the body': (partly(120), NO),
    'half the body, then silence': (partly(120, False), NO), 'silence': (hang, NO), 'a byte a second': (drip, NO),
    'a body of 4 GB': (lambda _, c: for_ever(c, b'HTTP/1.1 200 OK\r\nContent-Length: 4294967296\r\n\r\n', b'x' * 65536), NO),
    'compressed 1:1000': (zipped(100 << 20), NO),
    'no JSON': (lambda *_: reply('<html>'), NO), 'an empty body': (lambda *_: reply(''), NO),
    'TLS cut short': (lambda _, c: c.sendall(b'HTTP/1.1 200 OK\r\n\r\n{"success":true,"mess'), NO),
    '512 levels': (lambda *_: reply('[' * 100000), NO), 'wrong types': (lambda *_: reply('{"success":"yes","message":1}'), NO),
    'bytes that are no UTF-8': (lambda *_: reply(b'{"success":true,"message":"\xff\xfe"}'), NO),
    '400 headers': (lambda *_: reply(extra=''.join(f'X-{i}: {"v" * 200}\r\n' for i in range(400))), OK),
    'a header of 1 MB': (lambda *_: reply(extra='X: ' + 'v' * (1 << 20) + '\r\n'), NO),
    'headers without end': (lambda _, c: for_ever(c, b'HTTP/1.1 200 OK\r\n', b'X: y\r\n' * 1000), NO),
    'no HTTP': (lambda _, c: c.sendall(b'SSH-2.0-Something\r\n' * 50), NO), 'HTTP 0.9': (lambda _, c: c.sendall(b'{"success":true,"message":"ok"}'), NO),
    'two lengths': (lambda *_: reply(extra='Content-Length: 3\r\n'), NO), 'a second reply': (twice, OK),
    'a negative length': (lambda *_: b'HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n{}', NO),
    'a broken chunk': (lambda _, c: c.sendall(b'HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nboo'), NO),
    '100 without end': (lambda _, c: for_ever(c, b'', b'HTTP/1.1 100 Continue\r\n\r\n' * 100), NO),
    '204 with a body': (lambda *_: reply(status=204), NO), '500 that decodes': (lambda *_: reply(status=500), OK),
    '999': (lambda *_: reply(status=999), OK), 'success false': (lambda *_: envelope('null', 'false'), OK),
    'a session that is no JSON': (lambda *_: reply('{"success":true,"message":"ok","data":{"message":"\\u0000"}}'), OK),
}


def memory(process):
    with open(f'/proc/{process.pid}/status') as status: return int(re.search(r'VmHWM:\s*(\d+)', status.read())[1]) // 1024


@row('replies', ', '.join(REPLIES), 'one outcome line each within 31 s, nothing stored, at most 64 MB more memory', short=1, long=10)
def replies(times):
    bad, most = [], [0]
    def one(name):
        answer, expected = REPLIES[name]
        server = Server({'update-device-token': answer})
        process = start('init user await pause token await pause', server)
        before = go_on(process, lambda p: (memory(p), defaults(p.home)))
        began = time.monotonic()
        after = go_on(process, lambda p: (memory(p), defaults(p.home)))
        took, ended = time.monotonic() - began, finish(process)
        most[0] = max(most[0], after[0] - before[0])
        lines = re.findall(f'^(?:{OK}|{NO})', ended.output, re.M)
        if not is_clean(ended) or lines != [expected] or took > 45 or before[1] != after[1] or after[0] > before[0] + 64:
            bad.append(f'{name}: {lines} {ended.output[-300:]} {took:.0f} s {before} {after} {ended.errors[-100:]}')
    in_parallel(one, list(REPLIES) * times, 16)
    return f'{len(REPLIES) * times} replies, {told(bad)}; at most {most[0]} MB more', not bad


@row('cut replies', 'the wire is reset, closed, silenced at a byte of what the server sends, TLS included', 'one outcome '
     'line each; every operation but the one that was cut works', short=50, long=5000)
def cut_replies(times):
    bad, server = [], Server()
    def one(turn):
        cut, then = 1 + turn * 3600 // times, ('reset', 'close', 'reset', 'close', 'silence')[turn % 5]
        wire = Wire(server, cut, then, only_first=True)
        ended = host('init await user await token await token await', wire)
        failed = len(re.findall('^Failed', ended.output, re.M))
        if not is_clean(ended) or ended.outcomes != 4 or failed > 1: bad.append(f'{cut} {then}: {brief(ended)}')
    in_parallel(one, range(times), 16)
    return f'{times} positions, {told(bad)}', not bad


@row('endless 401', 'every request refused: with a token, with growing headers, on both authentications, without '
     'tokens; then 200; a refresh that is empty, that fails; 20 images amid it', 'one outcome line each within 31 s, '
     'silence after that but for one stray resend; no image waits for a second', short=1, long=5)
def endless_401(times):
    no = lambda *_: reply('{"success":false,"message":"no"}', 401)
    counts = {'n': 0}
    def once(*_):
        counts['n'] += 1
        return no() if counts['n'] % 2 else reply()
    cases = {'with a token': ({'token': no}, '5:token', 5), 'slow refresh': ({'token': no, 'user/authenticate': slow}, '5:token', 5),
             'both authentications': ({'authenticate': no, 'token': no}, '5:token', 5), 'then 200': ({'token': once}, '1:token', 1),
             'an empty refresh': ({'token': no, 'user/authenticate': lambda *_: envelope('{"userToken":""}')}, '5:token', 5),
             'a failed refresh': ({'token': no, 'user/authenticate': lambda *_: None}, '5:token', 5),
             'without tokens': ({'': no}, '100:token', 100)}
    bad, figures = [], {}
    def one(name):
        script, commands, count = cases[name]
        server = Server()
        process = start(f'init user await pause {commands} sleep pause 20:image await pause image await', server,
                        HOST_IMAGE='https://localhost/i')
        go_on(process, lambda _: server.script.update(script))
        began = time.monotonic()
        asked = go_on(process, lambda _: time.monotonic())
        def calm(p):
            seen = (time.monotonic() - began, len(server.requests))
            time.sleep(3)
            return seen[0], seen[1], len(server.requests) - seen[1], memory(p)
        took, rounds, late, megabytes = go_on(process, calm)
        ended = finish(process)
        sent = sum(r.size for r in server.requests) / 1e6
        waited = [r.time - asked for r in server.requests if r.path == '/i'][19]
        figures[name] = f'{rounds} requests, {sent:.1f} MB in {took:.0f} s, {late} late, {megabytes} MB held, images within {waited * 1000:.0f} ms'
        if not is_clean(ended) or ended.outcomes != count + 23 or took > 45 or late > count or megabytes > 200 or waited > 1:
            bad.append(f'{name}: {brief(ended)}')
    in_parallel(one, list(cases) * times, 8)
    return '; '.join(f'{name}: {seen}' for name, seen in figures.items()) + f'; {told(bad)}', not bad


def slow(request, connection):
    time.sleep(0.2)
    return envelope('{"userToken":"' + 'u' * 500 + '"}')


@row('redirects', '300 to 308 to a path, another scheme, host, port, itself, no address, for a device token and an '
     'image', 'secrets that leave the origin 0; one outcome line each', short=1, long=10)
def redirects(times):
    targets = ['/other', 'https://localhost:8443/other', 'https://127.0.0.1:8443/x', 'https://localhost:9/x',
               'http://localhost:8443/x', 'https://two.example/x', 'file:///etc/passwd', 'ftp://localhost/x',
               '', '//two.example/x', 'https://[::1', '/user/authenticate\x01']
    bad, leaks, followed = [], [], [0]
    def one(status_and_target):
        status, target = status_and_target
        answer = lambda *_: reply(status=status, extra=f'Location: {target}\r\n')
        server = Server({'update-device-token': answer, 'image': answer})
        ended = host('init user await token image await', server, HOST_IMAGE='https://localhost:8443/image',
                     http_proxy=f'http://127.0.0.1:{server.port}')
        abroad = [r for r in server.requests if r.authority != 'localhost:8443']
        leaks.extend(r for r in abroad if r.body or any(h.startswith('x-') or h in ('authorization', 'cookie') for h in r.headers))
        followed[0] += len(abroad)
        if not is_clean(ended) or ended.outcomes != 4 or len(server.requests) > 60: bad.append(f'{status} {target}: {brief(ended)}')
    cases = [(s, t) for s in (300, 301, 302, 303, 304, 305, 307, 308) for t in targets + ['/update-device-token', '/image']]
    in_parallel(one, cases * times)
    return f'{len(cases) * times} cases, {followed[0]} bare requests to other origins, {len(leaks)} secrets, {told(bad)}', \
        not bad and not leaks and followed[0] > 0


def listener(answer=None, backlog=64):
    """Takes connections and says `answer`, or never takes any when the backlog is full."""
    sock = socket.create_server(('127.0.0.1', 0), backlog=backlog)
    port = sock.getsockname()[1]
    if backlog == 0: place.children.extend(socket.create_connection(('127.0.0.1', port)) for _ in range(1))
    def take():
        while True:
            connection = sock.accept()[0]
            connection.recv(4096)
            if answer: connection.sendall(answer)
            place.children.append(connection)
    if backlog: threading.Thread(target=take, daemon=True).start()
    else: place.children.append(sock)
    return SimpleNamespace(port=port)


def dying(end):
    """Ends each connection while it rests in the pool."""
    server = Server()
    def answer(request, connection):
        connection.sendall(server.usual(request))
        time.sleep(0.02)
        end(connection)
    server.script = {'token': answer}
    return server


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))


def half_close(connection):
    connection.shutdown(socket.SHUT_WR)
    silence(connection)


def within(file, content):
    """Has a program see another file of /etc."""
    source = os.path.join(place.work, file)
    with open(source, 'w') as out: out.write(content)
    os.chmod(source, 0o644)
    if subprocess.run(['unshare', '-m', 'true'], capture_output=True).returncode: raise Skip('needs the right to mount')
    return ('unshare', '-m', 'sh', '-c', f'mount --bind {source} /etc/{file} && exec "$@"', 'sh')


def two_addresses():
    """A black hole at one address and a server at another, on one port."""
    server = Server()
    sock = socket.create_server(('127.0.0.3', server.port), backlog=0)
    place.children += [sock, socket.create_connection(sock.getsockname())]
    return server


BAD, GOOD, BOTH = 'Failed to setUser: ', 'setUser successfully: ', 'init user await'
RESTING = ' token await sleep sleep sleep' * 9
UNHARMED = {'closed after each reply', 'a pooled connection that died', 'one half closed', '1 Mbit/s, 400 ms'}  # Nothing fails.
# Who is there instead of the server, how the host is started, its commands, the line that it must print.
CONNECTIONS = {
    'refused': (lambda: SimpleNamespace(port=1), {}, BOTH, BAD),
    'a black hole': (lambda: listener(backlog=0), {}, BOTH, BAD),
    'a hung handshake': (lambda: Server(handshakes=False), {}, BOTH, BAD),
    'a silent proxy': (listener, {}, BOTH, BAD),
    'a proxy that says no': (lambda: listener(b'HTTP/1.1 407 No\r\nContent-Length: 0\r\n\r\n'), {}, BOTH, BAD),
    'a proxy that talks nonsense': (lambda: listener(bytes(range(256)) * 9), {}, BOTH, BAD),
    'no TLS': (lambda: listener(b'HTTP/1.1 200 OK\r\n\r\n' + b'no handshake ' * 99), {}, BOTH, BAD),
    'a wrong name': (lambda: Server(cert=place.wrong_name), {'SSL_CERT_FILE': lambda: place.wrong_name}, BOTH, BAD),
    'an unknown authority': (Server, {'SSL_CERT_FILE': lambda: place.wrong_name}, BOTH, BAD),
    'an expired certificate': (Server, {'shim': {'CLOCK_STEP': 40 * 86400}}, 'fail ' + BOTH, BAD),
    'no trust store': (Server, {'SSL_CERT_FILE': '/nowhere'}, BOTH, BAD),
    'an empty trust store': (Server, {'SSL_CERT_FILE': '/dev/null'}, BOTH, BAD),
    'closed after each reply': (lambda: dying(lambda _: None), {}, BOTH + RESTING, GOOD),
    'a pooled connection that died': (lambda: dying(reset), {}, BOTH + RESTING, GOOD),
    'one half closed': (lambda: dying(half_close), {}, BOTH + RESTING, GOOD),
    '1 Mbit/s, 400 ms': (lambda: Wire(Server(), delay=0.2, rate=125000), {}, BOTH, GOOD),
    '8 descriptors': (Server, {'around': ('sh', '-c', 'ulimit -n 8; exec "$@"', 'sh')}, BOTH, ''),
    'IPv6 only': (lambda: Server(at='::1'), {'image': 'https://[::1]:{}/i'}, 'init image await', 'Successfully hit the image'),
    'a dead first address': (two_addresses, {'image': 'https://two.example:{}/i', 'around': lambda: within('hosts',
        '127.0.0.3 two.example\n127.0.0.1 two.example\n')}, 'init image await', 'Successfully hit the image'),
    'HTTP/2 that falls silent': (lambda: Wire(nginx(), 9000, 'silence', only_first=True, connects=True), {}, BOTH +
        ' 40:token await 40:token await', OK),
}


@row('connections', ', '.join(CONNECTIONS), 'one outcome line each within 31 s', short=1, long=5)
def connections(times):
    bad, slowest = [], ['', 0]
    def one(name):
        make, options, commands, expected = CONNECTIONS[name]
        server = make()
        options = {k: v() if callable(v) else v for k, v in options.items()}
        if 'image' in options: options |= {'HOST_IMAGE': options.pop('image').format(server.port), 'no_proxy': '*'}
        ended = host(commands, server, **options)
        due = sum(int(w.split(':')[0]) if ':' in w else w not in ('await', 'fail', 'sleep') for w in commands.split())
        is_right = expected in ended.output and not (name in UNHARMED and 'Failed' in ended.output)
        if not is_clean(ended) or ended.outcomes != due or not is_right:
            bad.append(f'{name}: {brief(ended)} {ended.output[-600:]}')
        if ended.seconds > slowest[1]: slowest[:] = [name, round(ended.seconds)]
    in_parallel(one, list(CONNECTIONS) * times, 18)
    return f'{len(CONNECTIONS) * times} cases, {told(bad)}; slowest: {slowest[0]}, {slowest[1]} s', not bad


@row('dead DNS', 'a name server that never answers, 5 images on it, 20 other operations meanwhile', 'no other operation '
     'waits for it by more than 50 ms, at best', short=3, long=10)
def dead_dns(times):
    try: silent = socket.create_server(('127.0.0.9', 53)), socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    except PermissionError: raise Skip('needs the right to bind port 53')
    silent[1].bind(('127.0.0.9', 53))
    def once(address):
        """How long the other requests take, in milliseconds."""
        server = Server()
        ended = host('init user await 5:image 20:token await', server, HOST_IMAGE=address, no_proxy='nowhere.example',
                     around=within('resolv.conf', 'nameserver 127.0.0.9\n'))
        if not is_clean(ended) or ended.outcomes != 27: raise AssertionError(f'{brief(ended)} {ended.output[-500:]}')
        moments = [r.time for r in server.requests if r.path.endswith('token')]
        return round((moments[-1] - moments[0]) * 1000)
    dead, alive = (sorted(once(f'http://{name}/i') for _ in range(times)) for name in ('nowhere.example', '127.0.0.1:1'))
    return (f'20 requests within {dead} ms, {alive} ms where the name server is not asked; the images failed at last',
            dead[0] <= alive[0] + 50)  # The others measure the machine, too.


@row('threads', '32 threads, every operation, getter and setter at once, under ThreadSanitizer; bursts of a second', 'no race, no '
     'hang', short=10, long=300)
def threads(seconds):
    if not place.tsan: raise Skip('no build under ThreadSanitizer was given')
    ended = host('init user await ' + 'storm await ' * seconds, Server(), build=place.tsan, patience=seconds * 4 + PATIENCE)
    asked = 2 + sum(map(int, re.findall(r'^asked (\d+)$', ended.output, re.M)))
    return (f'{ended.outcomes} outcomes of {asked} {ended.errors[:800]}',
            is_clean(ended) and 'not idle' not in ended.output and ended.outcomes == asked)


@row('soak', 'operations under AddressSanitizer with its leak check', 'no report', short=2000, long=100000)
def soak(times):
    if not place.asan: raise Skip('no build under AddressSanitizer was given')
    ended = host('init user await ' + '100:token await ' * (times // 100) + 'everything await', Wire(nginx(), connects=True),
                 build=place.asan, patience=3600)
    return f'{ended.outcomes} outcomes {ended.errors[:800]}', is_clean(ended) and ended.outcomes == times + 2 + EVERYTHING - 1


@row('flat', 'operations, a tenth of them before the first look', 'memory within 4 MB, descriptors and threads as before',
     short=10000, long=100000)
def flat(times):
    process = start('init user await ' + ('500:token await ' * (times // 5000)) + 'pause ' + '500:token await ' * (times // 500) +
                    'pause', Wire(nginx(), connects=True))
    def look(p):
        pages = int(open(f'/proc/{p.pid}/statm').read().split()[1])
        return pages * 4 // 1024, len(os.listdir(f'/proc/{p.pid}/fd')), len(os.listdir(f'/proc/{p.pid}/task'))
    before, after = go_on(process, look), go_on(process, look)
    ended = finish(process)
    return f'MB, descriptors, threads {before} -> {after}', is_clean(ended) and after[0] <= before[0] + 4 and \
        after[1] <= before[1] + 2 and after[2] == before[2] and ended.outcomes == 2 + times // 10 + times
