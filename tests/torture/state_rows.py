"""What may happen to the files that Kivo keeps."""

import contextlib, os, random, re, sqlite3, subprocess, time

from harness import *

SERVICE = ('kivo-access-token-service', 'kivo-device-auth-account')


def number(value): return int(value.split('-')[1]) if value else 0


@row('kill -9', 'killed at random moments of a loop that writes a session, a user and a device token',
     'no torn pair, no value lost whose commit had returned; the next start reads the file', short=40, long=1000)
def kills(times):
    server, at, torn, lost, settled, floor = Server(), home(), 0, 0, [], 0
    for _ in range(times):
        process = start('time-lines init await ' + 'user settle ' * 200, server, at)
        killer = threading.Timer(random.uniform(0.02, 0.5), process.kill)
        killer.start()
        while line := await_line(process, 'settled'):
            settled.append(int(line.split()[1]) / 1000)
            floor = int(re.findall(r'userToken: "u-(\d+)"', process.heard)[-1])
        finish(process)
        kept = defaults(at) if os.path.exists(defaults_file(at)) else {}
        user, merchant = number(kept.get('UserJwtToken')), number(kept.get('MerchantJwtTokenTemp'))
        torn += bool(merchant) and (merchant != number(kept['sessionId']) or merchant < user)
        lost += max(user, merchant) < floor
    settled.sort()
    took = f'{settled[len(settled) // 2]:.1f} ms median, {settled[-1]:.1f} ms longest' if settled else 'none'
    return f'{torn} torn, {lost} lost; from the last line to the end of its commit {took} ({len(settled)})', \
        not torn and not lost and len(settled) > times / 10


def spoil(content=None, script=None, name='defaults'):
    def make(at):
        file = (defaults_file if name == 'defaults' else keychain_file)(at)
        if content is not None:
            with open(file, 'wb') as out: out.write(content)
        if script:
            with contextlib.closing(sqlite3.connect(file)) as database: database.executescript(script)
    return make


ITEMS = 'CREATE TABLE items (service TEXT NOT NULL, account TEXT NOT NULL, data BLOB NOT NULL, PRIMARY KEY (service, account));'
ITEM = ITEMS + f"INSERT INTO items VALUES {SERVICE[:2]!r};".replace(')', ', {})', 1)
DEFAULTS = 'CREATE TABLE defaults (key TEXT PRIMARY KEY NOT NULL, value);'
OURS_ALONE = {'nothing', 'umask 0', 'umask 0777'}
KEPT = {'UserJwtToken', 'sessionId', 'SdkAuthRequest', 'UserAuthRequest'}
# What is there before, variables, a program around, identifiers per run (None: different), what must be on disk.
BEFORE = {
    'nothing': (lambda at: None, {}, (), 1, True),
    'random bytes': (lambda at: [spoil(os.urandom(9000), name=n)(at) for n in ('defaults', 'keychain')], {}, (), 1, True),
    'an empty file': (spoil(b''), {}, (), 1, True),
    'a database cut short': (lambda at: (spoil(script=DEFAULTS)(at), os.truncate(defaults_file(at), 5000)), {}, (), 1, True),
    'a table of another shape': (spoil(script='CREATE TABLE defaults (name, content, more);'), {}, (), 1, False),
    'records of another version': (spoil(script=DEFAULTS + "PRAGMA user_version = 7; INSERT INTO defaults VALUES "
        "('SdkAuthRequest', x'7b7d'), ('UserAuthRequest', 3.5), ('UserJwtToken', x'00'), ('sessionId', NULL);"), {}, (), 1, True),
    'umask 0': (lambda at: None, {}, ('sh', '-c', 'umask 0; exec "$@"', 'sh'), 1, True),
    'umask 0777': (lambda at: None, {}, ('sh', '-c', 'umask 0777; exec "$@"', 'sh'), 1, True),
    'no HOME': (lambda at: None, {'HOME': None}, (), None, False),
    'a HOME that is a file': (lambda at: None, {'HOME': '/etc/passwd'}, (), None, False),
    'a folder in the file\'s place': (lambda at: os.makedirs(defaults_file(at)), {}, (), 1, False),
    'a foreign item': (spoil(script=ITEM.format("x'666f726569676e'"), name='keychain'), {}, (), 1, True),
    'an empty item': (spoil(script=ITEM.format("x''"), name='keychain'), {}, (), 1, True),
    'an item that is not UTF-8': (spoil(script=ITEM.format("x'fffe'"), name='keychain'), {}, (), None, True),
    'an item that is no data': (spoil(script=ITEM.format('42'), name='keychain'), {}, (), None, True),
}


@row('files found', ', '.join(BEFORE) + ': three runs each', 'every outcome, one identifier for all requests where it '
     'can be kept; tokens on disk where they can be; modes 0600 and 0700', short=1, long=10)
def files_found(times):
    bad = []
    def one(name):
        prepare, variables, around, identifiers, is_kept = BEFORE[name]
        at, server = home(), Server()
        prepare(at)
        ended = [host('init user await token await', server, at, around=around, **variables) for _ in range(3)]
        seen = {r.headers['x-unique-device-id'] for r in server.requests}
        kept = defaults(at) if is_kept else {}
        files = [os.path.join(d, f) for d, _, fs in os.walk(at) for f in fs] if name in OURS_ALONE else []
        modes = {oct(os.stat(file).st_mode & 0o777) for file in files}
        if [e.outcomes for e in ended] != [3, 3, 3] or not all(map(is_clean, ended)) or modes - {'0o600'} \
           or (len(seen) != identifiers if identifiers else len(seen) < 3) or is_kept and not KEPT <= kept.keys():
            bad.append(f'{name}: {brief(*ended)} identifiers {len(seen)} kept {sorted(kept)} {modes}')
    in_parallel(one, list(BEFORE) * times)
    return f'{len(BEFORE) * times} cases, {told(bad)}', not bad


@row('locked files', 'another process holds both databases for 5 s amid operations', 'every outcome, each identifier '
     'read at most 1 s late; what waited is on disk after the next change', short=1, long=10)
def locked(times):
    for _ in range(times):
        at, server = home(), Server()
        process = start('init user await pause user 5:token await pause user await', server, at)
        await_line(process, 'paused')
        holders = [sqlite3.connect(f, isolation_level=None, check_same_thread=False) for f in (defaults_file(at), keychain_file(at))]
        for holder in holders: holder.execute('BEGIN EXCLUSIVE')
        release = threading.Timer(5, lambda: [holder.close() for holder in holders])
        release.start()
        process.stdin.write('\n')
        process.stdin.flush()
        await_line(process, 'paused')
        release.join()
        ended = finish(process, '\n')
        if not is_clean(ended) or number(defaults(at)['UserJwtToken']) < server.issued - 2: return f'{brief(ended)}', False
    return 'nothing lost', True


@row('disk full', 'a disk of 256 KiB, full from the start, full amid operations, freed', 'every outcome; after the '
     'next change all is on disk', short=2, long=20)
def disk_full(times):
    for turn in range(times):
        with small_disk() as at:
            server = Server()
            def fill(_=None):
                with contextlib.suppress(OSError), open(f'{at}/filler', 'ab', buffering=0) as file:
                    while file.write(b'x' * 1024): pass
            if turn % 2: fill()
            process = start('pause init user 5:token await pause user 5:token await pause user await', server, at)
            for before in (lambda _: None, fill, lambda _: os.remove(f'{at}/filler')):
                go_on(process, before)
            ended = finish(process)
            kept = defaults(at)
            if not is_clean(ended) or not KEPT <= kept.keys() or number(kept['UserJwtToken']) < server.issued - 1:
                return f'{brief(ended)} {kept} {server.issued}', False
    return 'recovered each time', True


@row('read-only', 'a disk that turns read-only, with files on it and without', 'every outcome; what is there is read',
     short=2, long=20)
def read_only(times):
    for turn in range(times):
        with small_disk() as at:
            server = Server()
            if turn % 2 == 0: host('init user await', server, at)
            subprocess.run(['mount', '-o', 'remount,ro', at], check=True)
            if turn % 2 == 0: server.script = {'user/authenticate': hang}  # The token on disk will do.
            ended = host('init token await' if turn % 2 == 0 else 'init user await token await', server, at)
            if not is_clean(ended) or ended.output.count('updateDeviceToken successfully') != 1: return f'{brief(ended)}', False
    return 'tokens on the disk were used', True


@row('many processes', 'two and eight processes of one application start at once and write', 'every outcome, one '
     'identifier item, the database whole', short=2, long=50)
def many_processes(times):
    for turn in range(times):
        at, server, count = home(), Server(), 8 if turn % 2 else 2
        ended = in_parallel(lambda _: host('init 5:user await 5:token await', server, at), range(count))
        check = sqlite3.connect(defaults_file(at)).execute('PRAGMA integrity_check').fetchone()[0]
        if not all(map(is_clean, ended)) or any(e.outcomes != 11 for e in ended) or check != 'ok' \
           or not KEPT <= defaults(at).keys(): return f'{check} {brief(*ended)}', False
    return 'all whole', True


@row('keychain', '64 operations of 4 processes ask for the identifier on a fresh machine', 'one item; every later '
     'request carries it; others only beside a duplicate line', short=3, long=100)
def keychain(times):
    refused = 0
    for _ in range(times):
        at, server = home(), Server()
        processes = [start('pause init 16:user await', server, at) for _ in range(4)]
        in_parallel(go_on, processes)
        ended = in_parallel(finish, processes)
        items = sqlite3.connect(keychain_file(at)).execute('SELECT data FROM items').fetchall()
        refused += sum(e.output.count('Error: -25299\n') for e in ended)
        if len(items) != 1 or any(re.search('^Error: (?!-25299)', e.output, re.M) or e.outcomes != 17 for e in ended):
            return f'{items} {brief(*ended)}', False
        server.requests.clear()
        host('init user await token await', server, at)
        if {r.headers['x-unique-device-id'].encode() for r in server.requests} != {items[0][0]}: return 'another identifier', False
    return f'one item each time, {refused} refused as duplicates', True
