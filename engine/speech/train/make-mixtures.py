#!/usr/bin/python3
"""Builds the speech classifier's training and evaluation streams.

    make-mixtures.py [cache-dir [train|eval ...]]
                      (default: $VELORUM_SPEECH_DATA or $HOME/.cache/velorum/speech-data,
                       both sets)

Reads the decoded recordings listed in <cache>/manifest.txt (prepare-data.sh),
splits them by speaker or file group into a training and an evaluation side,
and writes 16 kHz mono float streams under <cache>/mix/<set>/ with their lists
<cache>/train.txt and <cache>/eval.txt (see SpeechCorpus.h). Every random
choice comes from a seeded generator, so the same corpus gives the same
streams.

Training (label 1 = speech throughout, with the pauses of dialogue):
  speech: recorded dialogue, words and letters, espeak-ng speech; clean, in
  synthetic rooms, and over music (speech-to-bed ratio +20 to -10 dB),
  effects, noise and crowd babble (+20 to -5 dB).
  no speech: music, music in rooms, effects, noises, and hard negatives:
  percussion loops, tonal signals (ring and busy tones, sirens, test tones,
  sweeps, DTMF, beeps), synthetic singing alone and over music, and sparse
  music (phrases with silences).
Evaluation: the same kinds from the held-out groups with other seeds, kept
per material for bench/speech, with the speech stem of every mixture.
"""

import os
import subprocess
import sys
import zlib

import numpy as np

RATE = 16000
STREAM_SECONDS = 30.0


def fnv1a(s):
    h = 2166136261
    for c in s.encode():
        h ^= c
        h = (h * 16777619) & 0xFFFFFFFF
    return h


def split_of(group):
    # The same rule as the original corpus split: Dutch dialogue is held out,
    # Czech trains; every other group goes by a hash of its name.
    if group.startswith("fillets-nl-"):
        return "eval"
    if group.startswith("fillets-cs-"):
        return "train"
    return "eval" if fnv1a(group) % 100 < 30 else "train"


def read_pcm(path):
    return np.fromfile(path, dtype="<i2").astype(np.float32) / 32768.0


def active_rms(x):
    n = len(x) // 512
    if n == 0:
        return float(np.sqrt(np.mean(np.square(x, dtype=np.float64)))) if len(x) else 0.0
    ms = np.mean(np.square(x[:n * 512].reshape(n, 512), dtype=np.float64), axis=1)
    top = ms.max()
    act = ms[ms >= top * 1e-3]
    return float(np.sqrt(act.mean())) if len(act) else 0.0


def trim(x):
    n = len(x) // 160
    if n == 0:
        return x
    ms = np.mean(np.square(x[:n * 160].reshape(n, 160)), axis=1)
    keep = np.nonzero(ms >= ms.max() * 1e-4)[0]
    return x[keep[0] * 160:(keep[-1] + 1) * 160]


def level(x, dbfs):
    r = active_rms(x)
    return x * (10 ** (dbfs / 20) / r) if r > 1e-6 else x


def fit(x, n):
    """Loops or cuts x to n samples."""
    if len(x) >= n:
        return x[:n].copy()
    return np.tile(x, int(np.ceil(n / len(x))))[:n]


def join(clips, rng, seconds, gap_lo, gap_hi):
    out, cur, size = [], [], 0
    for c in clips:
        g = np.zeros(int(rng.uniform(gap_lo, gap_hi) * RATE), np.float32)
        cur += [c, g]
        size += len(c) + len(g)
        if size >= seconds * RATE:
            out.append(np.concatenate(cur))
            cur, size = [], 0
    if size >= 8 * RATE:
        out.append(np.concatenate(cur))
    return out


# --- material from the manifest ---------------------------------------------

def load_manifest(cache):
    entries = []
    with open(os.path.join(cache, "manifest.txt")) as f:
        for line in f:
            parts = line.rstrip("\n").split(" ", 2)
            if len(parts) == 3:
                entries.append(parts)
    return entries


def speech_streams(entries, rng):
    groups = {}
    for kind, group, path in entries:
        if kind == "speech":
            groups.setdefault(group, []).append(path)
    out = []
    for g in sorted(groups):
        clips = []
        for p in groups[g]:
            c = trim(read_pcm(p))
            if len(c) >= 1600 and active_rms(c) > 1e-4:
                clips.append(level(c, -23 + rng.uniform(-3, 3)).astype(np.float32))
        rng.shuffle(clips)
        out += [(g, s) for s in join(clips, rng, STREAM_SECONDS, 0.1, 0.6)]
    return out


def music_streams(entries, rng, per_file):
    out = []
    for kind, group, path in entries:
        if kind != "music":
            continue
        x = read_pcm(path)
        if len(x) < 8 * RATE or active_rms(x) < 1e-4:
            continue
        x = level(x, -23 + rng.uniform(-6, 6)).astype(np.float32)
        seg = int(STREAM_SECONDS * RATE)
        starts = list(range(0, max(1, len(x) - seg + 1), seg))[:per_file]
        out += [(group, x[s:s + seg]) for s in starts]
    return out


def effects_streams(entries, rng):
    clips = []
    for kind, group, path in entries:
        if kind != "effects":
            continue
        c = trim(read_pcm(path))
        if len(c) < 800 or active_rms(c) < 1e-4:
            continue
        c = level(c, -23 + rng.uniform(-8, 8)).astype(np.float32)
        clips += [c[i:i + 10 * RATE] for i in range(0, len(c), 10 * RATE)]
    rng.shuffle(clips)
    return [("effects", s) for s in join(clips, rng, STREAM_SECONDS, 0.0, 1.0)]


def espeak_streams(voices, text_file, rng, count):
    words = open(text_file, encoding="utf-8", errors="ignore").read().split()
    words = [w for w in words if w.isalpha()]
    out = []
    for i in range(count):
        voice = voices[i % len(voices)]
        clips = []
        while sum(len(c) for c in clips) < STREAM_SECONDS * RATE:
            at = rng.integers(0, len(words) - 20)
            sentence = " ".join(words[at:at + int(rng.integers(5, 16))])
            cmd = ["espeak-ng", "-v", voice, "-s", str(int(rng.integers(120, 200))), "-p",
                   str(int(rng.integers(20, 80))), "--stdout", sentence]
            wav = subprocess.run(cmd, capture_output=True, check=True).stdout
            raw = subprocess.run(["sox", "-t", "wav", "-", "-t", "raw", "-e", "floating-point", "-b", "32",
                                  "-r", str(RATE), "-c", "1", "-"], input=wav, capture_output=True,
                                 check=True).stdout
            c = trim(np.frombuffer(raw, dtype=np.float32).copy())
            if len(c) > 1600:
                clips.append(level(c, -23 + rng.uniform(-3, 3)).astype(np.float32))
                clips.append(np.zeros(int(rng.uniform(0.1, 0.6) * RATE), np.float32))
        out.append(("espeak-" + voice, np.concatenate(clips)))
    return out


# --- synthetic material -------------------------------------------------------

def noise(kind, n, rng):
    w = rng.standard_normal(n)
    if kind == "white":
        x = w
    elif kind == "pink":
        spectrum = np.fft.rfft(w)
        f = np.arange(len(spectrum))
        spectrum[1:] /= np.sqrt(f[1:])
        spectrum[0] = 0
        x = np.fft.irfft(spectrum, n)
    else:  # brown
        x = np.cumsum(w)
        x -= np.convolve(x, np.ones(801) / 801, mode="same")
    return level(x.astype(np.float32), -23)


def room(x, rng):
    """Reverberation: an exponentially decaying noise tail behind the direct sound."""
    rt60 = rng.uniform(0.2, 1.2)
    n = int(rt60 * RATE)
    t = np.arange(n) / RATE
    tail = rng.standard_normal(n) * np.exp(-6.9 * t / rt60)
    tail[: int(0.005 * RATE)] = 0
    ir = tail / np.sqrt(np.sum(tail ** 2)) * 10 ** (rng.uniform(-6, 6) / 20)
    ir[0] = 1.0
    size = 1 << int(np.ceil(np.log2(len(x) + n)))
    y = np.fft.irfft(np.fft.rfft(x, size) * np.fft.rfft(ir, size), size)[:len(x)]
    return level(y.astype(np.float32), 20 * np.log10(active_rms(x) + 1e-12))


def drum_loop(rng, seconds):
    bpm = rng.uniform(70, 180)
    step = 60.0 / bpm / 4
    n = int(seconds * RATE)
    out = np.zeros(n + RATE)

    def hit(kind):
        if kind == "kick":
            m = int(0.3 * RATE)
            t = np.arange(m) / RATE
            f = 50 + 90 * np.exp(-t * 30)
            return np.sin(2 * np.pi * np.cumsum(f) / RATE) * np.exp(-t * rng.uniform(8, 20))
        if kind == "snare":
            m = int(0.25 * RATE)
            t = np.arange(m) / RATE
            tone = np.sin(2 * np.pi * rng.uniform(150, 250) * t)
            return (0.6 * rng.standard_normal(m) + 0.5 * tone) * np.exp(-t * rng.uniform(15, 30))
        if kind == "hat":
            m = int(0.12 * RATE)
            t = np.arange(m) / RATE
            h = np.diff(rng.standard_normal(m + 1))
            return 0.4 * h * np.exp(-t * rng.uniform(30, 80))
        m = int(0.4 * RATE)  # tom
        t = np.arange(m) / RATE
        return np.sin(2 * np.pi * rng.uniform(80, 200) * t) * np.exp(-t * 10)

    pattern = {k: rng.random(16) < p for k, p in (("kick", 0.3), ("snare", 0.2), ("hat", 0.6), ("tom", 0.08))}
    pattern["kick"][0] = True
    pattern["snare"][rng.choice([4, 12])] = True
    sounds = {k: hit(k) for k in pattern}
    swing = rng.uniform(0, 0.3) * step
    i = 0
    while i * step < seconds:
        for k, on in pattern.items():
            if on[i % 16] and rng.random() > 0.05:
                at = int((i * step + (swing if i % 2 else 0)) * RATE)
                s = sounds[k] * rng.uniform(0.7, 1.0)
                out[at:at + len(s)] += s[: len(out) - at]
        i += 1
    if rng.random() < 0.4:  # a bass line on the beats
        t = np.arange(n) / RATE
        notes = 40 * 2 ** (rng.integers(0, 12, 16) / 12)
        f = notes[(t / (step * 4)).astype(int) % 16]
        env = np.exp(-((t % (step * 2)) * 8))
        out[:n] += 0.3 * np.sign(np.sin(2 * np.pi * np.cumsum(f) / RATE)) * env
    return level(out[:n].astype(np.float32), -23 + rng.uniform(-6, 6))


def tones(rng, seconds):
    n = int(seconds * RATE)
    t = np.arange(n) / RATE
    kind = rng.integers(0, 8)

    def cadence(on, off):
        return ((t % (on + off)) < on).astype(float)

    if kind == 0:  # ringback tones
        f1, f2, on, off = [(440, 480, 2, 4), (400, 450, 0.4, 0.2), (425, 425, 1, 4), (425, 425, 1.5, 3.5)][rng.integers(0, 4)]
        x = (np.sin(2 * np.pi * f1 * t) + np.sin(2 * np.pi * f2 * t)) * cadence(on, off)
    elif kind == 1:  # busy / congestion
        x = (np.sin(2 * np.pi * 480 * t) + np.sin(2 * np.pi * 620 * t)) * cadence(rng.uniform(0.25, 0.5), rng.uniform(0.25, 0.5))
    elif kind == 2:  # siren wail / yelp
        period = rng.choice([rng.uniform(2, 6), rng.uniform(0.2, 0.5)])
        f = 600 + 800 * (0.5 - 0.5 * np.cos(2 * np.pi * t / period))
        x = np.sin(2 * np.pi * np.cumsum(f) / RATE)
        x = x + 0.3 * np.sin(2 * 2 * np.pi * np.cumsum(f) / RATE)
    elif kind == 3:  # two-tone siren
        f = np.where((t % 1.0) < 0.5, rng.uniform(400, 500), rng.uniform(550, 700))
        x = np.sign(np.sin(2 * np.pi * np.cumsum(f) / RATE)) * 0.5
    elif kind == 4:  # steady test tones
        x = np.sin(2 * np.pi * rng.choice([100, 440, 997, 1000, 3150, rng.uniform(50, 8000)]) * t)
    elif kind == 5:  # sweeps
        period = rng.uniform(2, 20)
        f = 20 * (400 ** ((t % period) / period))
        x = np.sin(2 * np.pi * np.cumsum(f) / RATE)
    elif kind == 6:  # DTMF digits
        lows, highs = [697, 770, 852, 941], [1209, 1336, 1477, 1633]
        x = np.zeros(n)
        at = 0
        while at < n:
            d = int(rng.uniform(0.07, 0.25) * RATE)
            s = np.arange(min(d, n - at)) / RATE
            x[at:at + len(s)] = np.sin(2 * np.pi * rng.choice(lows) * s) + np.sin(2 * np.pi * rng.choice(highs) * s)
            at += d + int(rng.uniform(0.05, 0.4) * RATE)
    else:  # beeps and Morse-like keying
        f = rng.uniform(400, 2500)
        key = (rng.random(int(seconds / 0.06) + 1) < 0.5).repeat(int(0.06 * RATE))[:n]
        x = np.sin(2 * np.pi * f * t) * key
    return level(x.astype(np.float32), -23 + rng.uniform(-6, 6))


VOWELS = [(730, 1090, 2440), (530, 1840, 2480), (270, 2290, 3010), (570, 840, 2410), (300, 870, 2240),
          (660, 1720, 2410), (490, 1350, 1690)]


def singing(rng, seconds):
    """A sung line: held, vibrato-laden notes of a scale through vowel formants."""
    n = int(seconds * RATE)
    out = np.zeros(n)
    base = rng.uniform(110, 440)
    scale = [0, 2, 4, 5, 7, 9, 11, 12]
    at = 0
    while at < n:
        dur = int(rng.uniform(0.25, 1.6) * RATE)
        m = min(dur, n - at)
        t = np.arange(m) / RATE
        f0 = base * 2 ** (scale[rng.integers(0, len(scale))] / 12)
        depth = rng.uniform(0.1, 0.6) * np.clip(t / 0.3, 0, 1)
        f = f0 * 2 ** (depth * np.sin(2 * np.pi * rng.uniform(4.5, 6.5) * t) / 12)
        phase = 2 * np.pi * np.cumsum(f) / RATE
        formants = VOWELS[rng.integers(0, len(VOWELS))]
        y = np.zeros(m)
        for h in range(1, int(7000 / f0)):
            fh = h * f0
            gain = sum(1.0 / (1 + ((fh - fc) / (60 + 0.06 * fc)) ** 2) for fc in formants) / h ** 0.8
            y += gain * np.sin(h * phase)
        env = np.minimum(1, np.minimum(t / 0.04, (m / RATE - t) / 0.08 + 1e-3))
        y *= np.clip(env, 0, 1)
        if rng.random() < 0.5:  # a consonant before the vowel
            c = min(m, int(rng.uniform(0.02, 0.08) * RATE))
            y[:c] += 0.2 * rng.standard_normal(c) * np.linspace(1, 0, c)
        out[at:at + m] += y
        at += m + (int(rng.uniform(0.1, 0.8) * RATE) if rng.random() < 0.3 else 0)
    return level(out.astype(np.float32), -23 + rng.uniform(-4, 4))


def sparse(x, rng):
    """Music cut into phrases with silences between them."""
    n = len(x)
    gate = np.zeros(n)
    at = 0
    while at < n:
        on = int(rng.uniform(0.15, 1.5) * RATE)
        fade = np.minimum(1, np.minimum(np.arange(on) / 160, (on - np.arange(on)) / 800))
        gate[at:at + on] = fade[: n - at]
        at += on + int(rng.uniform(0.2, 2.0) * RATE)
    return (x * gate).astype(np.float32)


def mix(speech, bed, ratio_db):
    """speech + bed, the bed's level `ratio_db` under the speech's active level."""
    bed = fit(bed, len(speech))
    g = active_rms(speech) / max(active_rms(bed), 1e-9) * 10 ** (-ratio_db / 20)
    return (speech + g * bed).astype(np.float32), speech


# --- writing ----------------------------------------------------------------------

class Writer:
    def __init__(self, cache, name):
        self.cache, self.name = cache, name
        self.dir = os.path.join(cache, "mix", name)
        os.makedirs(self.dir, exist_ok=True)
        self.lines, self.seconds = [], {}

    def add(self, category, label, audio, stem=None):
        i = len(self.lines)
        rel = "mix/%s/%05d-%s.f32" % (self.name, i, category)
        peak = float(np.max(np.abs(audio))) if len(audio) else 0.0
        scale = 0.9 / peak if peak > 0.9 else 1.0  # keep clear of clipping
        self._save(rel, audio * scale)
        line = "%s-%05d %s %d %s" % (self.name, i, category, label, rel)
        if stem is not None:
            srel = rel[:-4] + ".stem.f32"
            self._save(srel, stem * scale)
            line += " " + srel
        self.lines.append(line)
        self.seconds[category] = self.seconds.get(category, 0) + len(audio) / RATE

    def _save(self, rel, x):
        path = os.path.join(self.cache, rel)
        data = np.asarray(x, dtype="<f4").tobytes()
        if os.path.exists(path) and os.path.getsize(path) == len(data) and \
                zlib.crc32(open(path, "rb").read()) == zlib.crc32(data):
            return  # unchanged: keep the file and its frame dump
        with open(path, "wb") as f:
            f.write(data)

    def close(self):
        with open(os.path.join(self.cache, self.name + ".txt"), "w") as f:
            f.write("\n".join(self.lines) + "\n")
        for c, s in sorted(self.seconds.items()):
            print("  %-22s %7.1f min" % (c, s / 60), file=sys.stderr)


def build(cache, entries, side, seed):
    rng = np.random.default_rng(seed)
    mine = [e for e in entries if split_of(e[1]) == side]
    speech = speech_streams(mine, rng)
    music = music_streams(mine, rng, 3 if side == "train" else 2)
    effects = effects_streams(mine, rng)
    if side == "train":
        synth = espeak_streams(["en-us", "en-gb-x-rp", "de", "fr-fr", "es", "pl", "sv", "ru", "hi", "cmn"],
                               "/usr/share/common-licenses/GPL-3", rng, 20)
    else:
        synth = espeak_streams(["en-us+f3", "it", "pt-br", "nl", "cs"], "/usr/share/common-licenses/Apache-2.0",
                               rng, 6)
    print("%s: %d speech, %d espeak, %d music, %d effects streams" % (side, len(speech), len(synth), len(music),
                                                                       len(effects)), file=sys.stderr)
    w = Writer(cache, side)
    noises = lambda n: noise(["white", "pink", "brown"][rng.integers(0, 3)], n, rng)
    pick = lambda lst: lst[rng.integers(0, len(lst))][1]
    if side == "train":
        voices = speech + synth
        for g, s in voices:
            w.add("speech", 1, room(s, rng) if rng.random() < 0.3 else s)
            x = room(s, rng) if rng.random() < 0.3 else s
            w.add("speech-music", 1, mix(x, pick(music), rng.uniform(-10, 20))[0])
            if rng.random() < 0.5:
                x = room(s, rng) if rng.random() < 0.3 else s
                w.add("speech-music", 1, mix(x, pick(music), rng.uniform(-10, 5))[0])
            r = rng.random()
            if r < 0.2:
                w.add("speech-effects", 1, mix(s, pick(effects), rng.uniform(-5, 20))[0])
            elif r < 0.4:
                w.add("speech-noise", 1, mix(s, noises(len(s)), rng.uniform(-5, 20))[0])
            elif r < 0.55:
                babble = sum(fit(pick(speech), len(s)) for _ in range(6))
                w.add("speech-crowd", 1, mix(s, babble, rng.uniform(0, 20))[0])
        for g, m in music:
            w.add("music", 0, room(m, rng) if rng.random() < 0.2 else m)
        for g, e in effects:
            w.add("effects", 0, e)
        n = int(STREAM_SECONDS * RATE)
        for i in range(12):
            w.add("noise", 0, noises(n))
        for i in range(60):
            w.add("drums", 0, drum_loop(rng, STREAM_SECONDS))
        for i in range(60):
            w.add("tones", 0, tones(rng, STREAM_SECONDS))
        for i in range(50):
            v = singing(rng, STREAM_SECONDS)
            w.add("singing", 0, v if i % 2 else mix(v, pick(music), rng.uniform(-5, 10))[0])
        for i in range(50):
            w.add("sparse-music", 0, sparse(pick(music), rng))
        for i in range(30):
            w.add("music-effects", 0, mix(pick(music), pick(effects), rng.uniform(-10, 10))[0])
    else:
        for g, s in speech:
            w.add("speech", 1, s, s)
        for g, s in synth:
            w.add("speech-synthetic", 1, s, s)
        for g, m in music:
            w.add("music", 0, m)
        for g, e in effects:
            w.add("effects", 0, e)
        for i in range(10):
            w.add("singing", 0, singing(rng, STREAM_SECONDS))
        for i in range(10):
            w.add("drums", 0, drum_loop(rng, STREAM_SECONDS))
        for i in range(10):
            w.add("tones", 0, tones(rng, STREAM_SECONDS))
        for i in range(10):
            w.add("sparse-music", 0, sparse(pick(music), rng))
        # Mixtures: every second held-out dialogue stream (at most 24) under each ratio.
        for k, (g, s) in enumerate(speech[::2][:24]):
            bed = music[(k * 7 + 3) % len(music)][1]
            for ratio in (10, 5, 0, -5, -10):
                m, stem = mix(s, bed, ratio)
                w.add("speech-music%+d" % ratio, 1, m, stem)
            m, stem = mix(s, noise("pink", len(s), rng), 0)
            w.add("speech-noise+0", 1, m, stem)
    w.close()


def main():
    cache = sys.argv[1] if len(sys.argv) > 1 else os.environ.get(
        "VELORUM_SPEECH_DATA", os.path.join(os.environ.get("HOME", "."), ".cache/velorum/speech-data"))
    sides = sys.argv[2:] or ["train", "eval"]
    entries = load_manifest(cache)
    for side in sides:
        build(cache, entries, side, 15 if side == "train" else 1015)


if __name__ == "__main__":
    main()
