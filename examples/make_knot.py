#!/usr/bin/env python3
"""Writes a trefoil knot as a closed tube of quads in OBJ, the demo's input.

usage: make_knot.py OUT.obj [SEGMENTS [SIDES]]
"""
import math
import sys


def knot(t):
    # A (2, 3) torus knot: it winds twice around the torus' axis and three times through its hole.
    r = 2.0 + math.cos(3.0 * t)
    return (r * math.cos(2.0 * t), r * math.sin(2.0 * t), math.sin(3.0 * t))


def sub(a, b):
    return (a[0] - b[0], a[1] - b[1], a[2] - b[2])


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def unit(a):
    n = math.sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2])
    return (a[0] / n, a[1] / n, a[2] / n)


def main():
    out = sys.argv[1]
    segments = int(sys.argv[2]) if len(sys.argv) > 2 else 192
    sides = int(sys.argv[3]) if len(sys.argv) > 3 else 12
    radius = 0.45
    lines = ["# trefoil knot tube, %d x %d quads, written by make_knot.py" % (segments, sides)]
    for i in range(segments):
        t = 2.0 * math.pi * i / segments
        h = 1e-4
        c = knot(t)
        tangent = unit(sub(knot(t + h), knot(t - h)))
        # The frame follows the curve's bend, so the tube does not twist on itself.
        bend = sub(sub(knot(t + h), c), sub(c, knot(t - h)))
        normal = unit(cross(cross(tangent, bend), tangent))
        binormal = cross(tangent, normal)
        for j in range(sides):
            a = 2.0 * math.pi * j / sides
            ca, sa = math.cos(a), math.sin(a)
            p = tuple(c[k] + radius * (ca * normal[k] + sa * binormal[k]) for k in range(3))
            lines.append("v %.6f %.6f %.6f" % p)
    for i in range(segments):
        i1 = (i + 1) % segments
        for j in range(sides):
            j1 = (j + 1) % sides
            # Counter-clockwise seen from outside: outward normals by the right-hand rule.
            a, b, c, d = i * sides + j, i1 * sides + j, i1 * sides + j1, i * sides + j1
            lines.append("f %d %d %d %d" % (a + 1, d + 1, c + 1, b + 1))
    with open(out, "w") as f:
        f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
