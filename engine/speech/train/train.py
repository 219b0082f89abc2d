#!/usr/bin/python3
"""Trains the speech classifier's network and writes its weight table.

    train.py [--cache DIR] [--minutes M | --steps N] [--out FILE]

Reads the training streams of <cache>/train.txt and the per-frame model
inputs that velorum_speech_frames computed for them with the product's own
code (<stream>.in), trains the causal convolutional network of
engine/speech/SpeechModel.h with torch on one thread, picks the decision
threshold on a validation tenth of the training streams (the evaluation
streams are never read), and writes engine/speech/SpeechModelWeights.cpp.
Seeded: with --steps the same streams give the same table; with the default time
budget the number of steps depends on the machine's speed (the table's header
comment records it).
"""

import argparse
import os
import sys
import time

import numpy as np
import torch

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import weights_table as wt  # noqa: E402

INPUTS, CH, DIL = wt.INPUTS, wt.CHANNELS, [1, 2, 4, 8, 16]
REACH = 2 * sum(DIL)  # frames a logit looks back beyond its own
LOGIT_FRAMES = 8      # logits averaged per decision
CROP = 48             # logits per training crop

# Share of the training draws per material.
WEIGHTS = {"speech": 1.0, "speech-music": 1.6, "speech-effects": 0.4, "speech-noise": 0.5, "speech-crowd": 0.3,
           "music": 1.5, "effects": 0.6, "noise": 0.2, "drums": 0.5, "tones": 0.5, "singing": 0.5,
           "sparse-music": 0.4, "music-effects": 0.3}


class Net(torch.nn.Module):
    def __init__(self, mean, inv_std):
        super().__init__()
        self.register_buffer("mean", torch.tensor(mean))
        self.register_buffer("inv_std", torch.tensor(inv_std))
        self.inp = torch.nn.Linear(INPUTS, CH)
        self.convs = torch.nn.ModuleList(torch.nn.Conv1d(CH, CH, 3, dilation=d) for d in DIL)
        self.out = torch.nn.Linear(CH, 1)

    def forward(self, x):  # x [B, T, INPUTS] -> logits [B, T - REACH]
        x = torch.clamp((x - self.mean) * self.inv_std, -8, 8)
        h = torch.relu(self.inp(x)).transpose(1, 2)
        for d, conv in zip(DIL, self.convs):
            h = h[:, :, 2 * d:] + torch.relu(conv(h))
        return self.out(h.transpose(1, 2)).squeeze(-1)


def load(cache):
    streams = []
    with open(os.path.join(cache, "train.txt")) as f:
        for line in f:
            name, cat, label, mix = line.split()[:4]
            x = np.fromfile(os.path.join(cache, mix + ".in"), dtype=np.float32).reshape(-1, INPUTS)
            if len(x) >= REACH + CROP + LOGIT_FRAMES:
                streams.append((cat, int(label), x))
    return streams


def decisions(net, x):
    """Speech probabilities at the classifier's decision frames of one stream."""
    with torch.no_grad():
        z = net(torch.from_numpy(x)[None])[0].numpy()
    avg = np.convolve(z, np.ones(LOGIT_FRAMES) / LOGIT_FRAMES, mode="valid")
    # avg[j] averages the logits of frames j + REACH .. j + REACH + 7; the
    # classifier decides after frames 63, 67, ...; the first decisions whose
    # logits all see real frames come after frame 71 (j = 2).
    return 1 / (1 + np.exp(-avg[2::4]))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--cache", default=os.environ.get(
        "VELORUM_SPEECH_DATA", os.path.join(os.environ.get("HOME", "."), ".cache/velorum/speech-data")))
    ap.add_argument("--minutes", type=float, default=25.0)
    ap.add_argument("--steps", type=int, default=0, help="train for exactly N steps instead of a time budget")
    ap.add_argument("--out", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..",
                                                   "SpeechModelWeights.cpp"))
    args = ap.parse_args()
    torch.set_num_threads(1)
    torch.manual_seed(15)
    rng = np.random.default_rng(15)

    streams = load(args.cache)
    order = rng.permutation(len(streams))
    valid = [streams[i] for i in order[: len(streams) // 10]]
    train = [streams[i] for i in order[len(streams) // 10:]]
    frames = np.concatenate([x for _, _, x in train])
    mean = frames.mean(0).astype(np.float32)
    inv_std = (1 / (frames.std(0) + 1e-3)).astype(np.float32)
    print("train %d streams (%.0f min), validation %d" % (len(train), len(frames) * 0.032 / 60, len(valid)))

    cats = sorted({c for c, _, _ in train})
    by_cat = {c: [s for s in train if s[0] == c] for c in cats}
    cat_p = np.array([WEIGHTS.get(c, 0.3) for c in cats])
    cat_p /= cat_p.sum()
    stream_p = {c: np.array([len(x) for _, _, x in by_cat[c]], float) for c in cats}
    for c in cats:
        stream_p[c] /= stream_p[c].sum()

    net = Net(mean, inv_std)
    opt = torch.optim.Adam(net.parameters(), lr=3e-3, weight_decay=1e-5)
    batch, span = 32, REACH + CROP
    start, step, deadline = time.time(), 0, time.time() + args.minutes * 60
    total = None
    def progress():
        if args.steps:
            return step / args.steps
        return (time.time() - start) / (deadline - start)

    while progress() < 1.0:
        xs, ys = [], []
        for _ in range(batch):
            c = cats[rng.choice(len(cats), p=cat_p)]
            _, y, x = by_cat[c][rng.choice(len(by_cat[c]), p=stream_p[c])]
            at = rng.integers(0, len(x) - span + 1)
            xs.append(x[at:at + span])
            ys.append(y)
        xb = torch.from_numpy(np.stack(xs))
        xb = xb + 0.02 * torch.randn_like(xb)
        yb = torch.tensor(ys, dtype=torch.float32)[:, None].expand(-1, CROP)
        # Learning rate: cosine decay over the budget.
        frac = min(1.0, progress())
        for g in opt.param_groups:
            g["lr"] = 3e-3 * (0.05 + 0.95 * 0.5 * (1 + np.cos(np.pi * frac)))
        loss = torch.nn.functional.binary_cross_entropy_with_logits(net(xb), yb)
        opt.zero_grad()
        loss.backward()
        opt.step()
        total = loss.item() if total is None else 0.98 * total + 0.02 * loss.item()
        step += 1
        if step % 500 == 0:
            print("step %d  %.1f min  loss %.4f" % (step, (time.time() - start) / 60, total), flush=True)

    # Threshold: the best balanced accuracy on the validation streams, taken
    # per material so that every kind counts alike.
    probs = [(c, y, decisions(net, x)) for c, y, x in valid]
    best = (0, 0.5)
    for th in np.arange(0.2, 0.9, 0.01):
        acc = {}
        for c, y, p in probs:
            acc.setdefault(c, []).append(np.mean((p >= th) == (y == 1)))
        score = np.mean([np.mean(v) for v in acc.values()])
        best = max(best, (score, th))
    threshold = best[1]
    print("threshold %.2f, validation accuracy per material:" % threshold)
    acc = {}
    for c, y, p in probs:
        acc.setdefault(c, []).append(np.mean((p >= threshold) == (y == 1)))
    for c in sorted(acc):
        print("  %-16s %6.2f %%  (%d streams)" % (c, 100 * np.mean(acc[c]), len(acc[c])))

    sd = net.state_dict()
    w_conv = np.stack([sd["convs.%d.weight" % l].numpy().transpose(2, 1, 0) for l in range(len(DIL))])
    b_conv = np.stack([sd["convs.%d.bias" % l].numpy() for l in range(len(DIL))])
    wt.write(args.out, mean, inv_std, sd["inp.weight"].numpy().T, sd["inp.bias"].numpy(), w_conv, b_conv,
             sd["out.weight"].numpy()[0], sd["out.bias"].numpy()[0], threshold,
             "%d training streams, %d steps, validation balanced accuracy %.4f" % (len(train), step, best[0]))
    torch.save(net.state_dict(), os.path.join(args.cache, "speech-net.pt"))
    print("wrote", os.path.abspath(args.out))


if __name__ == "__main__":
    main()
