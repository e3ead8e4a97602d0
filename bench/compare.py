#!/usr/bin/env python3
"""Measures modLA and its peers in turns on one pinned core and writes a table.  Started by bench/run."""

import argparse
import collections
import hashlib
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCES, BUILT = ROOT / 'bench/peers', ROOT / 'build/peers'
LIBRARY, DRIVER = ROOT / 'build/release/libmodla.so', ROOT / 'build/release/modla_driver'
MEASURED = BUILT / 'measured.json'  # the latest times of peers, for --no-peers

# ---- the rows ----

Row = collections.namedtuple('Row', 'work p n datatype')
WORDS, FLOATS = 'integer[4]', 'float[8]'

# The speed that is wanted, best 64-bit peer = 1, on cores with two ports for products of 512 bits; in PRODUCT_GOALS
# for n = 64, 256, 1024, 2048, and then on cores with one.
PRODUCT_GOALS = {
    2: ((0.5, 1, 1, 2), (0.4, 0.8, 0.8, 1.5)),
    3: ((0.9, 2, 4.5, 4.5), (0.8, 1.6, 3.2, 3.2)),
    251: ((0.9, 2, 4.5, 4.5), (0.8, 1.6, 3.2, 3.2)),
    4093: ((1.1, 2.2, 5, 5), (0.8, 1.8, 3.8, 3.8)),
    65521: ((0.7, 1.5, 3.3, 3.3), (0.6, 1.3, 2.2, 2.2)),
    1048573: ((0.6, 1, 2, 1.8), (0.5, 0.9, 1.4, 1.4)),
    33554393: ((0.5, 0.85, 2, 1.9), (0.5, 0.8, 1.3, 1.4)),
}
ELIMINATION_GOALS = {251: (0.7, 1.5, 2), 65521: (0.8, 1.6, 2.2), 33554393: (0.7, 1.3, 1.5)}
OTHER_GOALS = {
    'matvec': {(65521, 4096): 1.5},
    'rref_half_rank': {(251, 1024): 1.3, (65521, 1024): 1.4, (33554393, 1024): 1.2},
    'forward_substitution': {(p, 1024): 1.2 for p in ELIMINATION_GOALS},
    'backward_substitution': {(p, 1024): 1.2 for p in ELIMINATION_GOALS},
    'nullspace': {(251, 1024): 1.1, (65521, 1024): 1.3, (33554393, 1024): 1.1},
    'charpoly': {(p, n): goal for p in (65521, 33554393) for n, goal in ((256, 1), (512, 1.2))},
    'gcd': {(65521, 200): 1.5, (65521, 2000): 4, (65521, 20000): 1},
}
TITLES = {
    'multiply': 'Multiply, n x n',
    'matvec': 'Multiply, n x n times a vector',
    'rref': 'RowReduce, reduced form, full rank',
    'rref_half_rank': 'RowReduce, reduced form, rank n/2',
    'determinant': 'Determinant',
    'lu': 'LUDecomp',
    'forward_substitution': 'ForSub, n right-hand sides',
    'backward_substitution': 'BackSub, n right-hand sides',
    'nullspace': 'MatBasis with nullspace, rank n/2',
    'charpoly': 'ZigZag; peers: characteristic polynomial by elimination',
    'charpoly_krylov': 'ZigZag; peers: by Krylov methods',
    'gcd': 'MatGcd, two polynomials of degree n',
}
# Operations by n^3 (n^2 for matvec).
OPERATIONS = {'multiply': 2, 'matvec': 2, 'rref': 2 / 3, 'rref_half_rank': 17 / 24, 'determinant': 2 / 3, 'lu': 2 / 3,
              'forward_substitution': 1, 'backward_substitution': 1, 'nullspace': 17 / 24}


def all_rows():
    def native(p):
        return WORDS if p < 65536 else FLOATS
    rows = [Row('multiply', p, n, native(p)) for p in PRODUCT_GOALS for n in (64, 256, 1024, 2048)]
    rows += [Row('multiply', 65521, n, FLOATS) for n in (256, 1024)]
    for work in ('rref', 'determinant', 'lu'):
        rows += [Row(work, p, n, native(p)) for p in ELIMINATION_GOALS for n in (256, 1024, 2048)]
    for work, goals in OTHER_GOALS.items():
        rows += [Row(work, p, n, native(p)) for p, n in goals]
        if work == 'charpoly':
            rows += [Row('charpoly_krylov', p, n, native(p)) for p, n in goals]
    return sorted(rows, key=lambda row: (list(TITLES).index(row.work), row.p, row.datatype == FLOATS, row.n))


def is_quick(row):
    sizes = {'multiply': (64, 1024), 'gcd': (2000,), 'charpoly': (256,), 'matvec': (4096,)}.get(row.work, (256,))
    if row.work in ('nullspace', 'rref_half_rank', 'forward_substitution'):
        sizes = (1024,) if row.p == 65521 else ()
    return row.n in sizes and row.p in (2, 251, 65521, 33554393) and row.work != 'charpoly_krylov'


def goal_of(row, ports):
    if row.work == 'multiply':
        if row.datatype == FLOATS and row.p < 65536:
            return None
        goals = PRODUCT_GOALS[row.p][0 if ports == 2 else 1]
        return goals[(64, 256, 1024, 2048).index(row.n)]
    if row.work in ('rref', 'determinant', 'lu'):
        return ELIMINATION_GOALS[row.p][(256, 1024, 2048).index(row.n)]
    return OTHER_GOALS.get(row.work, {}).get((row.p, row.n))


def operations_of(row):
    return OPERATIONS[row.work] * row.n ** (2 if row.work == 'matvec' else 3) if row.work in OPERATIONS else None


# ---- the machine ----

def cpu_information():
    with open('/proc/cpuinfo') as file:
        pairs = (line.split(':', 1) for line in file.read().split('\n\n')[0].splitlines())
        return {key.strip(): value.strip() for key, value in pairs}


CPU = cpu_information()
FLAGS = set(CPU['flags'].split())
MACHINE = '-'.join([{'GenuineIntel': 'intel', 'AuthenticAMD': 'amd'}.get(CPU['vendor_id'], CPU['vendor_id'].lower()),
                    CPU['cpu family'], CPU['model']])


def peak_of(row, peaks):
    """The fastest instruction that multiplies residues of this modulus exactly, and its operations per second."""
    fits = ['ifma', 'double']
    if row.p <= 4096:
        fits.append('float')
    if row.p <= 65536:
        fits.append('pairs')  # of balanced residues
    if row.p <= 256:
        fits.append('bytes')
    if row.p == 2:
        fits.append('bits')
    return max((rate, name) for name, rate in peaks.items() if name.rstrip('vni0123456789') in fits)


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout.strip()


def versions():
    packages = ['libflint-dev', 'fflas-ffpack', 'libgivaro-dev', 'libopenblas-serial-dev:amd64', 'libntl-dev',
                'libm4ri-dev', 'g++']
    found = {name: output_of('dpkg-query', '-W', '-f', '${Version}', name) for name in packages}
    found['modLA'] = output_of('git', '-C', str(ROOT), 'describe', '--always', '--dirty', '--exclude=*') or 'unknown'
    return found


# ---- the drivers ----

def peer_builds():
    """name: (bits, source, g++'s arguments, environment)"""
    def blas(triplet):
        return f'-I/usr/include/{triplet}/openblas-serial', f'/usr/lib/{triplet}/openblas-serial'
    head, path = blas('x86_64-linux-gnu')
    wide = ['-O2', '-march=native', '-std=c++17']
    # OpenBLAS knows processors by their model, and takes its slowest kernels on one that is newer than itself.
    core = 'Haswell' if 'avx2' in FLAGS else None
    if {'avx512f', 'avx512bw', 'avx512vl', 'avx512dq'} <= FLAGS:
        core = 'SkylakeX'
    builds = {
        'flint64': (64, 'flint.cpp', wide + ['-lflint', '-lgmp'], {}),
        'fflas64': (64, 'fflas.cpp', wide + [head, f'-L{path}', f'-Wl,-rpath,{path}', '-lopenblas', '-lgivaro',
                                             '-lgmpxx', '-lgmp'], {'OPENBLAS_CORETYPE': core} if core else {}),
        'ntl64': (64, 'ntl.cpp', wide + ['-lntl', '-lgmp'], {}),
        'm4ri64': (64, 'm4ri.cpp', wide + ['-lm4ri'], {}),
    }
    unpacked = BUILT / 'i386/usr'
    if unpacked.is_dir():
        head, path = blas('i386-linux-gnu')
        lib = unpacked / 'lib/i386-linux-gnu'
        common = ['-m32', '-O2', '-mfpmath=sse', '-std=c++17', f'-I{unpacked}/include', '-I/usr/include/i386-linux-gnu',
                  f'-L{lib}', f'-Wl,-rpath,{path}:{lib}']
        narrow = common + ['-march=native']
        fflas = [head, f'-L{path}', '-lopenblas', '-lgivaro', '-l:libgmpxx.so.4', '-l:libgmp.so.10']
        builds.update({
            'flint32': (32, 'flint.cpp', narrow + ['-lflint', '-lmpfr', '-l:libgmp.so.10'], {}),
            'fflas32': (32, 'fflas.cpp', narrow + fflas, {}),
            # Vector code beside the SSE code of the 32-bit BLAS can slow that down.
            'fflas32sse': (32, 'fflas.cpp', common + ['-march=x86-64', '-msse4.1'] + fflas, {}),
            'ntl32': (32, 'ntl.cpp', narrow + ['-lntl', '-l:libgmp.so.10'], {}),
            'm4ri32': (32, 'm4ri.cpp', narrow + [f'{lib}/libm4ri.a'], {}),
        })
    return builds


def build(name, source, arguments):
    target, source = BUILT / name, SOURCES / source
    command, stamp = ['g++', str(source), '-o', str(target)] + arguments, BUILT / f'{name}.stamp'
    contents = str(command).encode() + source.read_bytes() + (SOURCES / 'driver.h').read_bytes()
    made_of = hashlib.sha256(contents).hexdigest()
    if target.exists() and stamp.exists() and stamp.read_text() == made_of:
        return True
    print(f'Building {name}', flush=True)
    done = subprocess.run(command, stderr=subprocess.PIPE, text=True)
    if done.returncode == 0:
        stamp.write_text(made_of)
    else:
        print(f'{name} cannot be built and is left out:\n' + '\n'.join(done.stderr.splitlines()[-5:]))
    return done.returncode == 0


class Failed(Exception):
    pass


class Driver:
    def __init__(self, name, bits, command, core, environment=()):
        self.name, self.bits = name, bits
        settings = dict(os.environ, OMP_NUM_THREADS='1', OPENBLAS_NUM_THREADS='1')
        settings.pop('OPENBLAS_CORETYPE', None)
        settings.update(environment)
        # In a session of its own: an interrupt is for this script alone, which then writes what there is.
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, env=settings,
                                        start_new_session=True, preexec_fn=lambda: os.sched_setaffinity(0, {core}))

    def ask(self, *words):
        try:
            self.process.stdin.write(' '.join(map(str, words)) + '\n')
            self.process.stdin.flush()
            answer = self.process.stdout.readline()
        except BrokenPipeError:
            answer = ''
        if not answer:
            raise Failed(f'{self.name} ended ({self.process.wait()}) when asked: {" ".join(map(str, words))}')
        return answer.split()


# ---- measuring ----

class Way:
    """One way of one driver to do a row's work."""

    def __init__(self, driver, name):
        self.driver, self.name = driver, name
        if driver.bits:  # a peer
            self.label = f'{name}-{driver.bits}' + ('-sse' if driver.name.endswith('sse') else '')
        else:
            self.label = driver.name
        self.times, self.shares = [], []

    def start(self):
        seconds, self.checksum = self.driver.ask('start', self.name)
        self.first = float(seconds)
        if self.first < 0.05:
            self.first = float(self.driver.ask('slice', self.name, 0.005)[0])

    def slice(self, span):
        seconds, _, share = self.driver.ask('slice', self.name, span)
        self.times.append(float(seconds))
        self.shares.append(float(share))

    def record(self):
        times = self.times or [self.first]
        return {'seconds': statistics.median(times), 'least': min(times), 'most': max(times), 'runs': len(times),
                'checksum': self.checksum}


def measure(row, drivers, slow, options):
    ways = []
    for driver in list(drivers):
        try:
            for name in driver.ask('open', *row):
                way = Way(driver, name)
                if (way.label, row.work, row.p) in slow:
                    continue
                way.start()
                ways.append(way)
        except Failed as failure:
            if not driver.bits:
                raise
            print(f'{failure}; it is left out from here on')
            drivers.remove(driver)
    # What is far from the best of its word size is measured once, and no more at larger sizes.
    racing = [way for way in ways if not way.driver.bits]
    for bits in (32, 64):
        peers = [way for way in ways if way.driver.bits == bits]
        best = min((way.first for way in peers), default=0)
        for way in peers:
            if way.first <= 1.3 * best:
                racing.append(way)
            else:
                way.driver.ask('stop', way.name)
                if way.first > 4 * best and row.n >= 256:
                    slow.add((way.label, row.work, row.p))
    rounds = 7 if max(way.first for way in racing) < 0.3 and not options.quick else 5
    for _ in range(rounds):
        for way in racing:
            way.slice(options.span)
    for driver in {way.driver for way in ways}:
        driver.ask('open', 'nothing', 2, 1, WORDS)  # frees its memory
    result = {'row': row._asdict(), 'ours': {}, 'peers': {}}
    for way in ways:
        result['peers' if way.driver.bits else 'ours'][way.label] = way.record()
    result['share'] = statistics.median(share for way in racing for share in way.shares)
    return result


def key_of(result):
    return ' '.join(str(part) for part in result['row'].values())


def checksums_of(result):
    return {entry['checksum'] for entry in list(result['ours'].values()) + list(result['peers'].values())}


def best_peer(result, bits):
    found = [(entry['seconds'], label) for label, entry in result['peers'].items() if f'-{bits}' in label]
    return min(found, default=None)


# ---- reports ----

def time_text(seconds):
    scale, unit = (1, 's') if seconds >= 1 else (1e3, 'ms') if seconds >= 1e-3 else (1e6, 'us')
    return f'{seconds * scale:#.3g}'.rstrip('.') + ' ' + unit


def ratio_text(ratio):
    return f'{ratio:.2f}' if ratio >= 0.1 else f'{ratio:.2g}'


def summary_of(result, report):
    """What the table says of a row."""
    row = Row(**result['row'])
    ours = result['ours']['modLA']['seconds']
    summary = {'row': row, 'ours': ours, 'goal': goal_of(row, report['ports']), 'agree': len(checksums_of(result)) == 1}
    operations = operations_of(row)
    if operations:
        summary['rate'] = operations / ours / 1e9
        if row.work != 'matvec':  # which memory bounds
            peak, summary['instruction'] = peak_of(row, report['peaks'])
            summary['fraction'] = summary['rate'] / peak
    for bits in (64, 32):
        best = best_peer(result, bits)
        if best:
            summary[bits] = best
            summary[f'ratio{bits}'] = best[0] / ours
    for label, entry in result['ours'].items():
        if label != 'modLA':
            summary['other'] = entry['seconds'] / ours
    return summary


def markdown(report):
    summaries = [summary_of(result, report) for result in report['results']]
    other = any('other' in s for s in summaries)
    peaks = ', '.join(f'{name} {rate:.0f}' for name, rate in report['peaks'].items())
    lines = ['# modLA beside its peers', '', report['description'], '',
             f'Peaks of 32-bit code on registers, Gop/s: {peaks}.', '',
             'Versions: ' + ', '.join(f'{name} {version}' for name, version in report['versions'].items()) + '.', '',
             "modLA is the 32-bit library, called through a host's table, conversions included; the peers are called "
             "with entries in their own form. *Ratio* is the best peer's time divided by modLA's: above 1 modLA wins. "
             '*Of peak* compares with the fastest instruction that multiplies such residues exactly. All results '
             'agreed with those of all peers' +
             ('.' if all(s['agree'] for s in summaries) else ', **except where marked with !**.')]
    work = None
    for s in summaries:
        row = s['row']
        if row.work != work:
            work = row.work
            lines += ['', f'## {TITLES[work]}', '']
            head = ['p', 'datatype', 'n', 'modLA', 'Gop/s', 'of peak', 'best 64-bit peer', 'ratio', 'goal',
                    'best 32-bit peer', 'ratio'] + (['other library / modLA'] if other else [])
            lines += ['| ' + ' | '.join(head) + ' |', '|' + '---|' * len(head)]
        cells = [row.p, row.datatype, row.n, time_text(s['ours']) + ('' if s['agree'] else ' !')]
        cells.append(f"{s['rate']:.1f}" if 'rate' in s else '')
        cells.append(f"{100 * s['fraction']:.1f} % ({s['instruction']})" if 'fraction' in s else '')
        for bits in (64, 32):
            if bits in s:
                seconds, label = s[bits]
                cells += [f'{time_text(seconds)} ({label.replace(f"-{bits}", "", 1)})', ratio_text(s[f'ratio{bits}'])]
            else:
                cells += ['', '']
            if bits == 64:
                cells.append(s['goal'] or '')
        if other:
            cells.append(f"{s['other']:.2f}" if 'other' in s else '')
        lines.append('| ' + ' | '.join(map(str, cells)) + ' |')
    return '\n'.join(lines) + '\n'


def svg(width, height, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" font-family="sans-serif" '
            'font-size="12">\n<rect width="100%" height="100%" fill="white"/>\n' + '\n'.join(parts) + '\n</svg>\n')


def line(x1, y1, x2, y2, colour='#bbb', more=''):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" {more}/>'


def text(x, y, words, anchor='start', colour='#222'):
    words = str(words).replace('&', '&amp;').replace('<', '&lt;')
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}">{words}</text>'


def log_position(value, low, high, first, last):
    from math import log
    return first + (last - first) * log(min(max(value, low), high) / low) / log(high / low)


def ratio_picture(report):
    """A bar for each row, from 1 to the best 64-bit peer's time divided by modLA's; a tick at the goal."""
    summaries = [s for s in (summary_of(result, report) for result in report['results']) if 'ratio64' in s]
    height, left, right = 50 + 16 * len(summaries), 470, 940
    low, high = 0.2, 10
    one = log_position(1, low, high, left, right)
    parts = [text(10, 20, 'Speed of modLA (32-bit) beside the best 64-bit peer = 1: times as fast')]
    for i, (colour, words) in enumerate((('#c73', 'slower'), ('#38c', 'faster, below the goal (tick)'),
                                         ('#2a7', 'goal reached'))):
        parts += [f'<rect x="{left + 80 * i + 110 * (i > 1)}" y="10" width="11" height="11" fill="{colour}"/>',
                  text(left + 80 * i + 110 * (i > 1) + 16, 20, words)]
    for mark in (0.2, 0.5, 1, 2, 5, 10):
        x = log_position(mark, low, high, left, right)
        parts += [line(x, 40, x, height - 5, '#444' if mark == 1 else '#ddd'), text(x, 36, mark, 'middle')]
    for i, s in enumerate(summaries):
        row, y = s['row'], 44 + 16 * i
        x = log_position(s['ratio64'], low, high, left, right)
        colour = '#2a7' if s['ratio64'] >= (s['goal'] or 1) else '#38c' if s['ratio64'] >= 1 else '#c73'
        name = TITLES[row.work].split(';')[0] if row.work != 'charpoly_krylov' else 'ZigZag (Krylov)'
        if row.p < 65536 and row.datatype == FLOATS:
            name += ', floats'
        parts += [text(left - 6, y + 11, f'{name}, p = {row.p}, n = {row.n}', 'end'),
                  f'<rect x="{min(x, one):.1f}" y="{y + 2}" width="{max(abs(x - one), 1):.1f}" height="11" fill="{colour}"/>',
                  text(right + 8, y + 11, ratio_text(s['ratio64']))]
        if s['goal']:
            x = log_position(s['goal'], low, high, left, right)
            parts.append(line(x, y, x, y + 15, '#222', 'stroke-width="2"'))
    return svg(1000, height, parts)


def product_picture(report):
    """Gop/s of products over n: modLA solid, the best 64-bit peer dashed."""
    colours = {251: '#2a7', 4093: '#38c', 65521: '#c73', 33554393: '#84b'}
    curves = collections.defaultdict(list)
    for result in report['results']:
        s = summary_of(result, report)
        row = s['row']
        if row.work == 'multiply' and row.p in colours and (row.datatype == WORDS or row.p > 65536):
            curves[row.p, 'modLA'].append((row.n, s['rate']))
            if 64 in s:
                curves[row.p, 'peer'].append((row.n, operations_of(row) / s[64][0] / 1e9))
    if not curves:
        return None
    left, right, top, bottom = 60, 560, 40, 400
    rates = [rate for points in curves.values() for _, rate in points]
    marks = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000]
    low = max([mark for mark in marks if mark <= min(rates)], default=1)
    high = min([mark for mark in marks if mark >= max(rates)], default=5000)
    parts = [text(10, 20, 'Products of n x n matrices, Gop/s: modLA (32-bit) solid, the best 64-bit peer dashed')]
    for n in (64, 256, 1024, 2048):
        x = log_position(n, 64, 2048, left, right)
        parts += [line(x, top, x, bottom, '#eee'), text(x, bottom + 18, f'n = {n}', 'middle')]
    for rate in [mark for mark in marks if low <= mark <= high]:
        y = log_position(rate, low, high, bottom, top)
        parts += [line(left, y, right, y, '#eee'), text(left - 6, y + 4, rate, 'end')]
    for (p, who), points in sorted(curves.items()):
        places = ' '.join(f'{log_position(n, 64, 2048, left, right):.1f},'
                          f'{log_position(rate, low, high, bottom, top):.1f}' for n, rate in sorted(points))
        # Peers that do the same work for two moduli lie on one line: their dashes take turns.
        dashes = f' stroke-dasharray="6 6" stroke-dashoffset="{6 * (list(colours).index(p) % 2)}"' * (who == 'peer')
        parts.append(f'<polyline points="{places}" fill="none" stroke="{colours[p]}" stroke-width="2"{dashes}/>')
        parts += [f'<circle cx="{place.split(",")[0]}" cy="{place.split(",")[1]}" r="3" fill="{colours[p]}"/>'
                  for place in places.split()]
    for i, (p, colour) in enumerate(colours.items()):
        parts += [line(right + 20, top + 20 * i, right + 50, top + 20 * i, colour, 'stroke-width="3"'),
                  text(right + 56, top + 4 + 20 * i, f'p = {p}')]
    return svg(720, 430, parts)


def write_reports(report, directory, name):
    directory.mkdir(parents=True, exist_ok=True)
    for result in report['results']:
        result['summary'] = {name: value for name, value in summary_of(result, report).items() if name != 'row'}
    (directory / f'{name}.json').write_text(json.dumps(report, indent=1) + '\n')
    (directory / f'{name}.md').write_text(markdown(report))
    (directory / f'{name}-ratios.svg').write_text(ratio_picture(report))
    products = product_picture(report)
    if products:
        (directory / f'{name}-products.svg').write_text(products)
    return directory / f'{name}.md'


# ---- the run ----

def line_of(s):
    """A row while the run goes on."""
    words = f"{' '.join(map(str, s['row'])):<46}{time_text(s['ours']):>9}"
    words += f"{s['rate']:9.1f} Gop/s" if 'rate' in s else ' ' * 15
    if 64 in s:
        words += f"{ratio_text(s['ratio64']):>7} (goal {s['goal'] or '-'}) {s[64][1]} {time_text(s[64][0])}"
    if 'other' in s:
        words += f"{s['other']:7.2f} x the other library"
    return words


def describe(report, clocks, minutes, options):
    """Says where and how the run took place, and whether the machine was quiet."""
    sets = ('sse2', 'avx2', 'fma', 'avx_vnni', 'avx512f', 'avx512_vnni', 'avx512ifma', 'gfni')
    share = min(result['share'] for result in report['results'])
    report['quiet'] = share > 0.97
    report['description'] = (
        f"{CPU['model name']} (family {CPU['cpu family']}, model {CPU['model']}), "
        f"{' '.join(name for name in sets if name in FLAGS)}; {report['ports']} port(s) for products of 512 bits; "
        f"clock {min(clocks):.2f} to {max(clocks):.2f} GHz by a chain of multiplications before every row. "
        f"{platform.system()} {platform.release()}, {time.strftime('%Y-%m-%d')}, {minutes:.0f} minutes on core "
        f"{options.core}; medians of at least five; in every row modLA and its peers had at least {100 * share:.0f} % of "
        "the core's time"
        + ('' if report['quiet'] else ': **the machine was not quiet**') + '.'
        + (' The peers were measured in earlier runs.' if options.no_peers else ''))


def parse_arguments():
    parser = argparse.ArgumentParser(prog='bench/run', description='Measures modLA beside its peers on one core.')
    parser.add_argument('--quick', action='store_true', help='a third of the rows, 64-bit peers only: 3 minutes')
    parser.add_argument('--rows', metavar='REGEX', help='rows "WORK P N DATATYPE" that match, as "multiply 251"')
    parser.add_argument('--no-peers', action='store_true', help="compare with the peers' latest times on this machine")
    parser.add_argument('--library', metavar='PATH', help='another libmodla.so to measure beside this one')
    parser.add_argument('--core', type=int, default=0, help='the core to run on (0)')
    parser.add_argument('--output', type=pathlib.Path, metavar='DIRECTORY',
                        help='where reports go: bench/results for a run of all rows with all peers, else build/bench')
    parser.add_argument('--list', action='store_true', help='list the rows')
    return parser.parse_args()


def recorded_peers():
    """Row: peers, from earlier runs on this machine."""
    found = {}
    for path in (ROOT / f'bench/results/{MACHINE}.json', MEASURED):
        if path.exists():
            report = json.loads(path.read_text())
            if report['machine'] == MACHINE:
                found.update({key_of(result): result['peers'] for result in report['results'] if result['peers']})
    return found


def main():
    options = parse_arguments()
    options.span = 0.015 if options.quick else 0.03
    rows = [row for row in all_rows() if (re.search(options.rows, ' '.join(map(str, row))) if options.rows else
                                          is_quick(row) or not options.quick)]
    if not rows:
        sys.exit('no row matches; --list shows them all')
    if options.list:
        print('\n'.join(' '.join(map(str, row)) for row in rows))
        return 0
    BUILT.mkdir(parents=True, exist_ok=True)
    builds = {} if options.no_peers else {name: made for name, made in peer_builds().items() if
                                          not options.quick or made[0] == 64}
    probe_made = ('probe', 'probe.cpp', ['-m32', '-O2', '-msse2', '-std=c++17'])
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = {name: pool.submit(build, name, source, arguments) for name, (_, source, arguments, _) in builds.items()}
        if not pool.submit(build, *probe_made).result():
            return 1
    start = time.monotonic()
    probe = Driver('probe', None, [str(BUILT / 'probe')] + (['avx_vnni'] if 'avx_vnni' in FLAGS else []), options.core)

    def peaks():
        return {name: float(rate) for name, rate in (pair.split('=') for pair in probe.ask('peaks'))}

    def clock():
        return float(probe.ask('clock')[0])

    # ours come first: their failure ends the run
    drivers = [Driver('modLA', None, [str(DRIVER), str(LIBRARY)], options.core)]
    if options.library:
        drivers.append(Driver('other', None, [str(DRIVER), str(pathlib.Path(options.library).resolve())], options.core))
    for name, (bits, _, _, environment) in builds.items():
        if jobs[name].result():
            drivers.append(Driver(name, bits, [str(BUILT / name)], options.core, environment.items()))

    before, clocks, recorded = peaks(), [clock()], recorded_peers()
    report = {'machine': MACHINE, 'peaks': before, 'results': []}
    report['ports'] = 2 if before.get('double512', 0) / clocks[0] > 24 else 1
    slow, wrong = set(), 0
    for row in rows:
        try:
            result = measure(row, drivers, slow, options)
        except KeyboardInterrupt:
            print('Interrupted')
            break
        clocks.append(clock())
        if options.no_peers:
            result['peers'] = recorded.get(' '.join(map(str, row)), {})
        report['results'].append(result)
        s = summary_of(result, report)
        wrong += not s['agree']
        print(line_of(s) + ('' if s['agree'] else f'  RESULTS DIFFER: {result}'), flush=True)
    if not report['results']:
        return 1
    for name, rate in peaks().items():
        report['peaks'][name] = max(rate, before[name])
    report['versions'] = versions()
    describe(report, clocks, (time.monotonic() - start) / 60, options)
    full = len(report['results']) == len(all_rows()) and not options.no_peers
    directory = options.output or (ROOT / 'bench/results' if full else ROOT / 'build/bench')
    if not options.no_peers:
        known = recorded
        for result in report['results']:
            known.setdefault(key_of(result), {}).update(result['peers'])
        MEASURED.write_text(json.dumps({'machine': MACHINE, 'results': [
            {'row': dict(zip(Row._fields, key.split())), 'peers': peers} for key, peers in known.items()]}))
    print(report['description'])
    print('The table is in', write_reports(report, directory, MACHINE))
    if wrong:
        print(f'{wrong} rows with results that differ')
    return 1 if wrong else 0


if __name__ == '__main__':
    try:
        sys.exit(main())
    except Failed as failure:
        sys.exit(str(failure))
