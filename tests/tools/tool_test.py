#!/usr/bin/env python3
"""The velmora tool as photographers meet it: the demo, exact round trips, damaged files fail
without leaving output, the orientation tag is applied, grey/RGB/alpha survive, options take every usual form.
usage: tool_test.py VELMORA WORK_DIR"""
import math, os, shutil, struct, subprocess, sys, zlib

velmora, work = sys.argv[1], os.path.join(sys.argv[2], "tool_files")
shutil.rmtree(work, ignore_errors=True)
os.makedirs(work)
failures = []


def run(*args, ok=True, stdin=None):
    p = subprocess.run([velmora, *args], cwd=work, input=stdin, capture_output=True)
    fail_if((p.returncode == 0) != ok, f"velmora {' '.join(args)} exited {p.returncode}: {p.stderr.decode()[-300:]}")
    return p


def fail_if(condition, message):
    if condition:
        failures.append(message)


def path(name):
    return os.path.join(work, name)


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(width, height, colour_type, rows):
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(b"".join(b"\0" + r for r in rows))) + chunk(b"IEND", b""))


def filtered_png(name):
    """The header and the filtered rows of a PNG: two files this tool wrote hold the same pixels
    exactly when these are equal (its encoder picks each row's filter from the row's bytes alone)."""
    data = open(path(name), "rb").read()
    pos, idat = 8, b""
    while pos < len(data):
        n, kind = struct.unpack(">I4s", data[pos:pos + 8])
        if kind == b"IDAT":
            idat += data[pos + 8:pos + 8 + n]
        pos += n + 12
    return data[16:29], zlib.decompress(idat)


def decode_png(name, limit=None):
    """(width, height, colour type, rows of bytes) of an 8-bit non-interlaced PNG: its first
    `limit` rows if given (a byte at a time in Python is slow on a large picture)."""
    header, raw = filtered_png(name)
    width, height, depth, colour = struct.unpack(">IIBB", header[:10])
    bpp = {0: 1, 2: 3, 4: 2, 6: 4}[colour] * depth // 8
    stride, rows, prev = width * bpp, [], bytearray(width * bpp)
    for y in range(min(height, limit or height)):
        f, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - bpp] if i >= bpp else 0
            b, c = prev[i], prev[i - bpp] if i >= bpp else 0
            pa, pb, pc = abs(b - c), abs(a - c), abs(a + b - 2 * c)  # Paeth
            pred = [0, a, b, (a + b) // 2, a if pa <= pb and pa <= pc else b if pb <= pc else c][f]
            line[i] = (line[i] + pred) & 255
        rows.append(bytes(line))
        prev = line
    return width, height, colour, rows


# A small photo-like picture: a colour ramp, as RGB, grey and grey+alpha files.
W, H = 37, 23
rgb = [bytes(v for x in range(W) for v in (x * 7 % 256, y * 11 % 256, (x * y) % 256)) for y in range(H)]
open(path("rgb.png"), "wb").write(png(W, H, 2, rgb))
open(path("grey.png"), "wb").write(png(W, H, 0, [bytes((x * 5 + y) % 256 for x in range(W)) for y in range(H)]))
open(path("ga.png"), "wb").write(png(W, H, 4, [bytes(v for x in range(W) for v in (x * 3, y * 9)) for y in range(H)]))
run("convert", "rgb.png", "photo.jpg", "--quality", "95")

# Channels survive every road; pixel values survive the convert road exactly.
for name, colour in (("rgb", 2), ("grey", 0), ("ga", 4)):
    run("convert", f"{name}.png", f"{name}-out.png")
    run("develop", f"{name}.png", f"{name}-dev.png")
    for out in (f"{name}-out.png", f"{name}-dev.png"):
        fail_if(decode_png(out)[2] != colour, f"{out} has colour type {decode_png(out)[2]}, its input {colour}")
    fail_if(decode_png(f"{name}-out.png")[3] != decode_png(f"{name}.png")[3], f"convert changed the pixels of {name}.png")

# The demo writes its scene and its developed picture. Developing with no amounts reproduces a
# file exactly, at 8 bits and through a 16-bit detour (the sRGB and ProPhoto round trip is exact);
# bad amounts and unknown commands are refused.
run("demo")
run("convert", "velmora-demo.png", "deep.png", "--bits", "16")
run("develop", "velmora-demo.png", "unchanged.png")
run("develop", "deep.png", "unchanged16.png")
run("convert", "unchanged16.png", "unchanged8.png", "--bits", "8")
scene = filtered_png("velmora-demo.png")
if scene != filtered_png("unchanged.png") or scene != filtered_png("unchanged8.png"):
    failures.append("developing the demo scene with no amounts changed pixels")
_, _, colour, developed = decode_png("velmora-demo-developed.png", 32)
rgb_of = lambda rows, n: [bytes(v for i, v in enumerate(r) if i % n < 3) for r in rows]
fail_if(rgb_of(developed, 4 if colour == 6 else 3) == decode_png("velmora-demo.png", 32)[3], "the demo's developed picture is the unedited scene")
for bad in (("--contrast", "2"), ("--exposure", "abc"), ("--exposure", "nan"), ("--vibrance", "0.5")):
    run("develop", "velmora-demo.png", "x.png", *bad, ok=False)
run("frobnicate", ok=False)

# Damaged and oversized files: a one-line error, a non-zero exit, no output and no leftover file.
jpeg = open(path("photo.jpg"), "rb").read()
open(path("cut.jpg"), "wb").write(jpeg[:len(jpeg) // 2])
open(path("cut.png"), "wb").write(open(path("rgb.png"), "rb").read()[:200])
open(path("huge.png"), "wb").write(png(60000, 60000, 2, [b""])[:33])
before = set(os.listdir(work))
for bad in ("cut.jpg", "cut.png", "huge.png"):
    for command in ("convert", "develop"):
        p = run(command, bad, "out.png", ok=False)
        if len(p.stderr.decode().strip().splitlines()) != 1 or not p.stderr.startswith(b"velmora: "):
            failures.append(f"{command} {bad}: stderr is not one 'velmora:' line: {p.stderr!r}")
fail_if(set(os.listdir(work)) != before, f"failed runs left files: {set(os.listdir(work)) - before}")
run("convert", "rgb.png", "no-such-dir/x.png", ok=False)
run("convert", "rgb.png", "x.bmp", ok=False)

# The EXIF orientation 6 (turn 90 degrees clockwise) is applied to the pixels.
exif = b"Exif\0\0" + b"II*\0" + struct.pack("<IH", 8, 1) + struct.pack("<HHIHH", 0x112, 3, 1, 6, 0) + struct.pack("<I", 0)
open(path("turned.jpg"), "wb").write(jpeg[:2] + b"\xff\xe1" + struct.pack(">H", len(exif) + 2) + exif + jpeg[2:])
run("convert", "photo.jpg", "plain.png")
run("convert", "turned.jpg", "upright.png")
_, _, _, plain = decode_png("plain.png")
w, h, _, upright = decode_png("upright.png")
if (w, h) != (H, W) or any(upright[y][3 * x:3 * x + 3] != plain[H - 1 - x][3 * y:3 * y + 3] for y in range(h) for x in range(w)):
    failures.append("orientation 6 is not a clockwise quarter turn of the stored pixels")

# Strong edits on pure primaries keep their hue: the two weaker channels stay equal.
primaries = ((0, 0, 255), (0, 255, 0), (255, 0, 0))
open(path("primaries.png"), "wb").write(png(48, 16, 2, [bytes(v for p in primaries for v in p * 16)] * 16))
run("develop", "primaries.png", "vivid.png", "--saturation", "1", "--exposure", "0.3", "--contrast", "0.5")
row = decode_png("vivid.png")[3][8]
for i, p in enumerate(primaries):
    out = tuple(row[3 * (16 * i + 8) + c] for c in range(3))
    weak = [out[c] for c in range(3) if p[c] == 0]
    fail_if(weak[0] != weak[1] or out[p.index(255)] < 200, f"developing {p} strongly gave {out}: the hue turned")

# Blurs: a flat picture stays flat (edges repeated, light averaged), radius 0 changes nothing,
# a blur smooths a checkerboard, and bad radii or kinds are usage errors.
open(path("flat.png"), "wb").write(png(W, H, 2, [bytes((90, 140, 200) * W)] * H))
for kind in ("box", "gaussian"):
    run("blur", "flat.png", f"flat-{kind}.png", "--radius", "4", "--kind", kind)
    if any(r != bytes((90, 140, 200) * W) for r in decode_png(f"flat-{kind}.png")[3]):
        failures.append(f"a {kind} blur of a flat picture is not flat")
run("blur", "rgb.png", "same.png", "--radius=0")
fail_if(decode_png("same.png")[3] != rgb, "blur --radius 0 changed pixels")
checker = [bytes(255 * ((x + y) % 2) for x in range(W) for _ in range(3)) for y in range(H)]
open(path("checker.png"), "wb").write(png(W, H, 2, checker))
run("blur", "checker.png", "soft.png", "--radius", "3")
jumps = lambda rows: sum(abs(r[i + 3] - r[i]) for r in rows for i in range(0, len(r) - 3, 3))
fail_if(not jumps(decode_png("soft.png")[3]) < jumps(checker) / 20, "blur --radius 3 did not smooth a checkerboard")
for bad in (("--radius", "-1"), ("--radius", "2.5"), ("--radius", "2", "--kind", "median"), ()):
    run("blur", "rgb.png", "bad.png", *bad, ok=False)

# Dehaze: a ramp veiled toward light grey (thicker at the top) gets its contrast back; the
# veil's own grey stays put. Bad settings are usage errors.
veiled = [bytes(int(v * t + 220 * (1 - t)) for v in r) for r, t in zip(rgb, (0.3 + 0.7 * y / (H - 1) for y in range(H)))]
open(path("veiled.png"), "wb").write(png(W, H, 2, veiled))
run("dehaze", "veiled.png", "clear.png", "--radius", "2")
spread = lambda rows: max(rows[1]) - min(rows[1])
if not spread(decode_png("clear.png")[3]) > spread(veiled) * 1.5:
    failures.append(f"dehaze did not restore contrast: {spread(veiled)} -> {spread(decode_png('clear.png')[3])}")
for bad in (("--strength", "2"), ("--radius", "0"), ("--t0", "0")):
    run("dehaze", "veiled.png", "bad.png", *bad, ok=False)

# A gradient applies the edit through its mask: -3 EV at the top of a flat grey, none at the bottom.
run("develop", "flat.png", "graded.png", "--exposure", "-3", "--gradient", "linear:0.5,1,0.5,0")
graded = decode_png("graded.png")[3]
if not graded[0][0] < graded[H // 2][0] < graded[H - 1][0] or abs(graded[H - 1][0] - 90) > 12:
    failures.append(f"a linear gradient did not grade the edit: {[r[0] for r in graded]}")
for bad in ("spiral", "linear:1,2", "radial:a", "radial:0.5,0.5,0,0.3"):
    run("develop", "flat.png", "bad.png", "--gradient", bad, ok=False)

# Split toning gives a grey picture colour (written as RGB): blue shadows, warm highlights.
open(path("ramp.png"), "wb").write(png(64, 8, 0, [bytes(x * 4 for x in range(64))] * 8))
run("develop", "ramp.png", "toned.png", "--split-tone", "204080:f0c070:0:0.8")
_, _, colour, toned = decode_png("toned.png")
dark, light = toned[4][3 * 8:3 * 8 + 3], toned[4][3 * 56:3 * 56 + 3]
if colour != 2 or not dark[2] > dark[0] or not light[0] > light[2]:
    failures.append(f"--split-tone on grey: colour type {colour}, shadow {tuple(dark)}, highlight {tuple(light)}")
for bad in ("204080", "zz4080:f0c070", "204080:f0c070:2", "204080:f0c070:0:-1"):
    run("develop", "ramp.png", "bad.png", "--split-tone", bad, ok=False)

# Tones on a grey ramp stay grey and follow their formulas within a code: levels 64..192 (and
# with gamma 2), a curve through 0:255,255:0 inverts, a curve passes through its points, the
# parametric curve lifts the shadows and nothing past them. Bad forms are usage errors.
codes = [x * 4 for x in range(64)]
tones = {("--levels", "64,192"): lambda c: min(max(c - 64, 0) / 128, 1) * 255,
         ("--levels", "64,192,2"): lambda c: (min(max(c - 64, 0) / 128, 1) ** 0.5) * 255,
         ("--curve", "0:255,255:0"): lambda c: 255 - c,
         ("--tone", "1,0,0,0"): lambda c: 255 * max(i / 1024 + (i < 256) * math.sin(math.pi * i / 256) ** 2 / 4
                                                    for i in range(int(c / 255 * 1024) + 1))}  # the curve's running maximum
for args, want in tones.items():
    run("develop", "ramp.png", "toned.png", *args)
    colour, row = decode_png("toned.png")[2], decode_png("toned.png")[3][4]
    if colour != 0 or any(abs(row[x] - want(c)) > 1 for x, c in enumerate(codes)):
        failures.append(f"develop {' '.join(args)}: colour type {colour}, codes {list(row)}")
run("develop", "ramp.png", "curved.png", "--curve", "0:20,96:40,160:200,255:230")
row = decode_png("curved.png")[3][4]
fail_if([row[0], row[24], row[40]] != [20, 40, 200] or list(row) != sorted(row) or max(row) > 230, f"--curve: {list(row)}")
for option, bad in (("--levels", "192,64"), ("--levels", "0,255,0"), ("--levels", "1"), ("--curve", "0:0"), ("--curve", "9:0,5:255"),
                    ("--curve", "0:0,255:300"), ("--curve", "0:0,1"), ("--tone", "2,0,0,0"), ("--tone", "0,0,0,0,0.5,0.4,0.8")):
    run("develop", "ramp.png", "bad.png", option, bad, ok=False)

# Looks from files: an identity .cube keeps the picture (within a code), an HSL file turning reds
# toward yellow raises a red patch's green; damaged files are one-line errors.
with open(path("identity.cube"), "w") as f:
    f.write('TITLE "identity"\nLUT_3D_SIZE 5\n' + "".join(f"{r / 4} {g / 4} {b / 4}\n" for b in range(5) for g in range(5) for r in range(5)))
run("develop", "rgb.png", "plain-dev.png")
run("develop", "rgb.png", "cubed.png", "--lut", "identity.cube")
if any(abs(a - b) > 1 for ra, rb in zip(decode_png("plain-dev.png")[3], decode_png("cubed.png")[3]) for a, b in zip(ra, rb)):
    failures.append("an identity .cube changed the picture")
open(path("reds.hsl"), "w").write("# hue\n1 0 0 0 0 0 0 0\n" + "0 " * 16 + "\n")
open(path("red.png"), "wb").write(png(8, 8, 2, [bytes((200, 30, 30) * 8)] * 8))
run("develop", "red.png", "turned.png", "--hsl", "reds.hsl")
if not decode_png("turned.png")[3][4][1] > 60:
    failures.append(f"--hsl did not turn red toward yellow: {tuple(decode_png('turned.png')[3][4][:3])}")
open(path("short.hsl"), "w").write("0 " * 23)
open(path("bad.cube"), "w").write("LUT_3D_SIZE 3\n0 0 0\n")
for option, bad in (("--hsl", "short.hsl"), ("--lut", "bad.cube"), ("--lut", "missing.cube")):
    p = run("develop", "rgb.png", "bad.png", option, bad, ok=False)
    fail_if(len(p.stderr.decode().strip().splitlines()) != 1, f"{option} {bad}: not a one-line error: {p.stderr!r}")

# Resize: the size asked (or kept in proportion), 16-bit inputs too; local detail on odd sizes
# raises the checkerboard's contrast less than nothing and keeps the picture's size.
run("resize", "rgb.png", "half.png", "--size", "18x0")
run("resize", "deep.tif" if os.path.exists(path("deep.tif")) else "rgb.png", "big.png", "--size", "0x40")
if decode_png("half.png")[:2] != (18, 11) or decode_png("big.png")[:2] != (64, 40):
    failures.append(f"resize sizes: {decode_png('half.png')[:2]}, {decode_png('big.png')[:2]}")
for bad in ("18", "0x0", "-3x4", "9x9x9"):
    run("resize", "rgb.png", "bad.png", "--size", bad, ok=False)
grey_checker = [bytes((60 + 120 * ((x // 2 + y // 2) % 2)) for x in range(W) for _ in range(3)) for y in range(H)]
grey_checker[3] = bytes(3 * W)  # a black row must stay dark, not turn white
open(path("grey-checker.png"), "wb").write(png(W, H, 2, grey_checker))
for amount in ("0.8", "-0.8"):
    run("develop", "grey-checker.png", f"detail{amount}.png", "--detail", amount)
soft, sharp = jumps(decode_png("detail-0.8.png")[3]), jumps(decode_png("detail0.8.png")[3])
if decode_png("detail0.8.png")[:2] != (W, H) or not soft < jumps(grey_checker) < sharp or max(decode_png("detail0.8.png")[3][3]) > 40:
    failures.append(f"--detail: smoothing left {soft}, raising {sharp} of the checkerboard's steps")

# Heal: a hole in a striped picture (marked by a rectangle, or by a mask file) is filled with
# stripes in step with the rest, and nothing outside it changes; bad masks are refused.
stripes = [bytes(v for x in range(64) for v in ((40, 200, 90) if x % 6 < 3 else (220, 60, 30))) for y in range(40)]
open(path("stripes.png"), "wb").write(png(64, 40, 2, stripes))
open(path("hole.png"), "wb").write(png(64, 40, 0, [bytes(255 if 26 <= x < 36 and 15 <= y < 23 else 0 for x in range(64)) for y in range(40)]))
run("heal", "stripes.png", "rect-healed.png", "--rect", "26,15,10,8")
run("heal", "stripes.png", "hole.png", "mask-healed.png")
for name in ("rect-healed.png", "mask-healed.png"):
    if not os.path.exists(path(name)):
        continue  # the failed run is already recorded
    healed = decode_png(name)[3]
    outside = all(healed[y][3 * x:3 * x + 3] == stripes[y][3 * x:3 * x + 3] for y in range(40) for x in range(64)
                  if not (26 <= x < 36 and 15 <= y < 23))
    err = sum(abs(a - b) for y in range(15, 23) for a, b in zip(healed[y][78:108], stripes[y][78:108])) / 240
    fail_if(not outside or err > 12, f"heal {name}: outside kept {outside}, mean error in the hole {err:.1f}")
open(path("small-mask.png"), "wb").write(png(8, 8, 0, [bytes(8)] * 8))
open(path("empty-mask.png"), "wb").write(png(64, 40, 0, [bytes(64)] * 40))
for args in (("small-mask.png", "bad.png"), ("empty-mask.png", "bad.png"), ("bad.png", "--rect", "1,2,3"),
             ("bad.png", "--rect", "1,2,0,4"), ("missing.png", "bad.png")):
    run("heal", "stripes.png", *args, ok=False)
fail_if(os.path.exists(path("bad.png")), "a refused heal left bad.png behind")

# Option forms, help, version, standard streams, TIFF at 16 bits, several inputs into a folder.
run("convert", "rgb.png", "a16.png", "--bits=16")
run("convert", "rgb.png", "b16.png", "--bits", "8", "--bits", "16")
if open(path("a16.png"), "rb").read() != open(path("b16.png"), "rb").read() or open(path("a16.png"), "rb").read()[24] != 16:
    failures.append("--bits=16 and a repeated --bits do not both give the 16-bit file")
for args in (("convert", "--help"), ("help", "develop"), ("--version",)):
    fail_if(not run(*args).stdout, f"velmora {' '.join(args)} printed nothing")
usage = run("convert", "rgb.png", ok=False).stderr.decode().strip().splitlines()
fail_if(len(usage) != 2 or "--help" not in usage[1], f"a usage error should be one line and a pointer to --help: {usage}")
piped = run("convert", "-", "-", "--quiet", stdin=open(path("rgb.png"), "rb").read()).stdout
fail_if(piped != open(path("rgb-out.png"), "rb").read(), "convert - - differs from converting the file")
run("convert", "rgb.png", "deep.tif", "--bits", "16")
run("convert", "deep.tif", "back.png", "--bits", "8")
fail_if(decode_png("back.png")[3] != rgb, "the 16-bit TIFF round trip changed pixels")
os.makedirs(path("batch"))
run("convert", "rgb.png", "grey.png", "--out-dir", "batch", "--format", "jpg", "--quiet")
fail_if(sorted(os.listdir(path("batch"))) != ["grey.jpg", "rgb.jpg"], f"--out-dir wrote {os.listdir(path('batch'))}")

print("\n".join(failures) or "all tool checks passed")
sys.exit(1 if failures else 0)
