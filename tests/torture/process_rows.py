"""What a host may do to its own process, and what its machine may refuse it."""

import collections, os, random, re, signal, subprocess, sys, threading, time

from harness import *

ENDINGS = {'return': 0, 'exit': 0, 'quick-exit': 0, 'exit-elsewhere': 0, 'exit-static': 0, 'abort': -6}


@row('ends', 'return, exit, quick_exit, exit on another thread, exit in a static destructor, abort; each with 0, '
     '1, 10, 100, 500 operations in flight at a hanging server', 'no crash, standard error empty; the exit hook '
     'within 50 ms, 200 allowed for a busy machine', short=60, long=1000)
def ends(times):
    server, bad, hooks = Server({'': hang}), [], []
    combinations = [(e, n) for e in ENDINGS for n in (0, 1, 10, 100, 500)]
    for turn in range(times):
        ending, load = combinations[turn % len(combinations)]
        ended = host(f'time-exit init user {load}:token {ending}', server)
        hooks += [int(n) / 1000 for n in re.findall(r'^hook (\d+)\n$', ended.errors)]
        errors = re.sub(r'^hook \d+\n$', '', ended.errors)
        if ended.status != ENDINGS[ending] or errors: bad.append(f'{ending} {load}: {ended.status} {errors}')
    hooks.sort()
    return (f'{told(bad, "bad ends")}; hook median {hooks[len(hooks) // 2]:.1f} ms, longest {hooks[-1]:.1f} ms', not bad and hooks[-1] < 200)


@row('ends, output stalled', 'exit with lines due while nobody reads the full pipe of standard output',
     'the C library may hold the process for as long as the pipe is full, never after', short=3)
def ends_stalled(times):
    held = 0
    for _ in range(times):
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        while True:
            try: os.write(writer, b'x' * 4096)
            except BlockingIOError: break
        os.set_blocking(writer, True)
        process = start('init user 5000:token exit', Server(), stdout=writer)
        os.close(writer)
        try: process.wait(3)
        except subprocess.TimeoutExpired: held += 1
        threading.Thread(target=lambda: collections.deque(iter(lambda: os.read(reader, 65536), b''), 0)).start()
        if process.wait(PATIENCE) != 0: return f'status {process.returncode}', False
    return f'held {held} of {times} times, ended at once when the pipe was read', True


@row('forks', 'fork with 50 operations in flight, every operation in the child; fork and exec; fork before first use',
     'the child does nothing and ends, the parent goes on with every outcome', short=5, long=200)
def forks(times):
    for _ in range(times):
        server = Server()
        ended = host('init user 50:token fork spawn await token await', server)
        early = host('fork everything await', server)
        children = all('child ended with 0' in e.output for e in (ended, early)) and 'spawned 7' in ended.output
        if not is_clean(ended) or not children or (ended.outcomes, early.outcomes) != (53, 2 * EVERYTHING):
            return f'{brief(ended, early)}', False
    return 'children ended with 0, 53 outcome lines in the parent; 7 each where the fork came first', True


@row('plug-in', 'a Python program that uses OpenSSL and SQLite itself opens a plug-in that links Kivo, runs it '
     'with work in flight, closes it and goes on', 'no crash, the library stays', short=3, long=50)
def plug_in(times):
    plugin = os.path.join(place.work, 'plugin.so')
    subprocess.run(['c++', '-std=c++20', '-shared', '-fPIC', '-I', ROOT, f'{ROOT}/tests/host/main.cpp', '-o', plugin,
                    f'{place.build}/kivo/libkivo.a', '-lcurl', '-lsqlite3', '-ldl', '-lpthread'], check=True)
    program = ('import ctypes, _ctypes, sys, ssl, sqlite3, hashlib, time\n'
               'context = ssl.create_default_context(); sqlite3.connect(":memory:").execute("select 1")\n'
               'library = ctypes.CDLL(sys.argv[1]); words = [b"host", b"name", b"init", b"user", b"30:token"]\n'
               'library.main(len(words), (ctypes.c_char_p * len(words))(*words)); _ctypes.dlclose(library._handle)\n'
               'for i in range(200): hashlib.sha256(bytes(100000)).digest(); time.sleep(0.005)\n')
    for _ in range(times):
        env = {'HOME': home(), 'SSL_CERT_FILE': place.cert, 'https_proxy': f'http://127.0.0.1:{Server().port}'}
        ended = subprocess.run([sys.executable, '-c', program, plugin], env=os.environ | env, timeout=PATIENCE,
                               capture_output=True, text=True)
        lines = len(OUTCOME.findall(ended.stdout))
        if ended.returncode or ended.stderr or lines != 32: return f'{ended}', False
    return '32 outcome lines each, the last ones after the plug-in was closed', True


def fail_each(kind, times, forever=0, commands='fail everything await heal init user await token await'):
    """Has the k-th call fail, the early ones above all. A hurt operation may be dropped or end by its time
    limit; the host lives, the wait ends, and later operations work, but where a library could not begin."""
    def count(commands):
        return int(host(commands, Server(), shim={'FAIL_KIND': kind, 'FAIL_AT': 0}).errors.split()[1])
    calls, first_load = count(commands), count('fail init await heal')
    bad, slow, dead = [], [], []
    def one(k):
        ended = host(commands, Server(), shim={'FAIL_KIND': kind, 'FAIL_AT': k, 'FAIL_FOREVER': forever})
        if ended.seconds > 25: slow.append(k)
        if 'updateDeviceToken successfully: ' not in ended.output: dead.append(k)
        if ended.status or not re.fullmatch(r'calls \d+\n', ended.errors) or 'not idle' in ended.output:
            bad.append(f'{k}: {ended.status} {ended.errors[-200:]}')
    turns = sorted({1 + int(calls * (i / times) ** 3) for i in range(times)})  # More of the early ones.
    in_parallel(one, turns)
    return (f'{len(turns)} of {calls} calls: {told(bad)}, {len(slow)} ended by a time limit, '
            f'{told(dead, "left TLS without function", 9)}',
            not bad and all(kind == 'memory' and k < first_load for k in dead))


@row('no memory, once', 'the k-th allocation fails in every operation and after', 'no crash, no hang; later '
     'operations work, but where OpenSSL could not begin or load an algorithm: it never tries again', short=60, long=4000)
def no_memory(times): return fail_each('memory', times)


@row('no threads', 'the k-th thread cannot be had', 'no crash, no hang; later operations work, at the right backend', short=10)
def no_threads(times):
    seen, is_right = fail_each('thread', times)
    def misled(k):
        server = Server()  # Its certificate is good for the development backend alone.
        host('fail init-production await heal init-production user await', server, shim={'FAIL_KIND': 'thread', 'FAIL_AT': k})
        return len(server.requests)
    wrong = sum(in_parallel(misled, (1, 2, 3)))
    return f'{seen}; {wrong} requests to the wrong backend', is_right and wrong == 0


@row('system calls fail', 'the k-th socket, connect, send, recv, mkdir, mknod fails', 'no crash, no hang; later operations work', short=30, long=200)
def system_calls(times): return fail_each('system', times)


@row('disk errors', 'the k-th read, write, sync or unlink of the databases fails, once and from then on; then the '
     'disk heals', 'no crash, no hang; later operations work', short=40, long=200)
def disk_errors(times):
    once, forever = fail_each('disk', times // 2), fail_each('disk', times - times // 2, 1)
    return f'once: {once[0]}; from then on: {forever[0]}', once[1] and forever[1]


@row('signals', 'seven signals handled without SA_RESTART, 2,000 a second sent, a profiler\'s clock on all threads',
     'every outcome, none of ours among the handlers', short=100, long=3000)
def signals(times):
    process = start(f'signals pause init user {times}:token await signals-handled', Server())
    go_on(process)
    def storm():
        while process.poll() is None:
            os.kill(process.pid, random.choice((signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM, signal.SIGHUP)))
            time.sleep(0.0005)
    threading.Thread(target=storm, daemon=True).start()
    ended = finish(process)
    return f'{ended.outcomes} outcomes, {re.findall("handled .*", ended.output)[0]}', is_clean(ended) and ended.outcomes == times + 2


@row('standard output', 'closed, full, its reader gone, over the file size limit', 'every operation goes on, the '
     'host lives', short=4)
def standard_output(times):
    seen = {}
    for name, redirection in {'closed': '>&-', 'full': '>/dev/full', 'broken': '| true', 'limited': '>lines'}.items():
        server, script = Server(), f'ulimit -f 8; "$@" {redirection}; exit ${{PIPESTATUS[0]}}'
        program = script if name == 'limited' else script[13:]
        ended = host('init user await 40:token await', server, around=('bash', '-c', program, 'bash'))
        seen[name] = (ended.status, ended.errors, server.count('update-device-token'))
    return '; '.join(f'{n}: status {s}, {e!r} on standard error, {r} requests' for n, (s, e, r) in seen.items()), \
        all(value == (0, '', 40) for value in seen.values())


@row('clock', 'the wall clock steps by an hour, forwards and back', 'every outcome at once', short=2)
def clock(times):
    ended = [host('init user await fail 20:token await heal', Server(), shim={'CLOCK_STEP': s}) for s in (3600, -3600)]
    return ', '.join(f'{e.outcomes} outcomes in {e.seconds:.1f} s' for e in ended), all(e.outcomes == 22 and e.seconds < 20 for e in ended)


@row('stopped', 'SIGSTOP amid 40 operations, SIGCONT 3 s (long: 61 s) later', 'every outcome', short=3, long=61)
def stopped(seconds):
    process = start('init user await pause 40:token await await', Server())  # The first wait may end meanwhile.
    go_on(process)
    time.sleep(0.02)
    os.kill(process.pid, signal.SIGSTOP); time.sleep(seconds); os.kill(process.pid, signal.SIGCONT)
    ended = finish(process)
    return f'{ended.outcomes} outcomes', is_clean(ended) and ended.outcomes == 42


@row('locale', 'a C++ locale that groups digits, another C locale', 'requests and lines as before', short=1)
def locale(times):
    server = Server()
    ended = host('locale init everything await', server)
    return f'{ended.outcomes} outcomes', is_clean(ended) and ended.outcomes == EVERYTHING and \
        all(r.size < 2000 and '.' not in r.headers.get('content-length', '') for r in server.requests)


@row('setenv', 'a host thread that calls setenv without pause', 'no crash', short=300, long=20000)
def variables(times):
    ended = host(f'set-variables init user await {times}:token await', Server())
    return f'{ended.outcomes} outcomes', is_clean(ended) and ended.outcomes == times + 2


@row('manners', 'looks at a host from outside, at rest and under load', 'see the table of manners', short=1)
def manners(times):
    server = Server()
    process = start('pause init user 40:token await pause 200:token pause await', server)
    seen = [go_on(process, look) for _ in range(3)]
    ended = finish(process)
    before, rest, load = seen
    asked = host('init user await fail everything 50:token await heal', Server(), shim={'FAIL_KIND': 'environment'})
    inherited = rest['inherited'] - before['inherited']
    unchanged = lambda what: ('as before', True) if rest[what] == before[what] else (rest[what], False)
    facts = [
        ('own threads, by name', 'these 3', rest['threads'], rest['threads'] == THREADS),
        ('signals open to them', 'faults and SIGPROF', rest['open'], rest['open'] <= FAULTS),
        ('dispositions', 'as before', *unchanged('actions')),
        ('descriptors before, at rest, under load', '+20', [s['descriptors'] for s in seen],
         load['descriptors'] <= before['descriptors'] + 20),
        ('open on exec, beyond the host\'s', 'libcurl\'s 2 at most', inherited, inherited <= 2),
        ('umask, directory', 'as before', *unchanged('place')),
        ('children', 'none', rest['children'] or 'none', rest['children'] == ''),
        ('environment reads and writes after start', '0', asked.errors.strip(), asked.errors == 'calls 0\n'),
        ('standard error', 'empty', ended.errors or 'empty', ended.errors == ''),
        ('modes of files and folders', '0600, 0700', rest['modes'], rest['modes'] <= {'0o600', '0o700'}),
    ]
    place.manners = facts
    return f'{sum(f[3] for f in facts)} of {len(facts)} right', all(f[3] for f in facts)


THREADS = ['kivo-network', 'kivo-pool-1', 'kivo-pool-2']
FAULTS = {signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE, signal.SIGILL, signal.SIGTRAP, signal.SIGABRT,
          signal.SIGSYS, signal.SIGPROF}


OF_THE_C_LIBRARY = 3 << 31  # Signals 32 and 33.


def look(process):
    """What /proc tells of a host."""
    proc, status = f'/proc/{process.pid}', open(f'/proc/{process.pid}/status').read()
    field = lambda text, name: re.search(rf'^{name}:\s*(.*)$', text, re.M)[1]
    threads = {t: open(f'{proc}/task/{t}/status').read() for t in os.listdir(f'{proc}/task')}
    own = {field(s, 'Name'): int(field(s, 'SigBlk'), 16) for s in threads.values() if field(s, 'Name').startswith('kivo-')
           and not field(s, 'Name').startswith('kivo-test')}
    flags = [int(field(open(f'{proc}/fdinfo/{d}').read(), 'flags'), 8) for d in os.listdir(f'{proc}/fd')]
    files = [os.path.join(folder, f) for folder, ds, fs in os.walk(process.home) for f in ds + fs if 'kivo' in folder + f]
    seen = {'threads': sorted(own), 'descriptors': len(flags), 'inherited': sum(not f & 0o2000000 for f in flags),
            'open': {n for n in range(1, 32) for mask in own.values() if not mask >> (n - 1) & 1 and n not in (9, 19)},
            'actions': [int(field(status, n), 16) & ~OF_THE_C_LIBRARY for n in ('SigCgt', 'SigIgn', 'SigBlk')],
            'place': (field(status, 'Umask'), os.readlink(f'{proc}/cwd')),
            'children': open(f'{proc}/task/{process.pid}/children').read(),
            'modes': {oct(os.stat(f).st_mode & 0o777) for f in files}}
    return seen
