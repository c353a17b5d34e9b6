"""Draws what a page costs over the size of its box, both logarithmic, as an SVG."""
import math

WIDTH, HEIGHT = 720, 440
LEFT, RIGHT, TOP, BOTTOM = 70, 170, 40, 50
COLOURS = ("#0072b2", "#56b4e9", "#d55e00", "#e69f00", "#009e73", "#8fd19e")


def draw(sizes, curves):
    """`curves`: for every engine the microseconds of the first and of the middle page, by size."""
    values = [value for pages in curves.values() for curve in pages.values() for value in curve]
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))

    def x(size):
        share = math.log(size / sizes[0]) / math.log(sizes[-1] / sizes[0])
        return LEFT + share * (WIDTH - LEFT - RIGHT)

    def y(value):
        return HEIGHT - BOTTOM - (math.log10(value) - low) / (high - low) * (HEIGHT - TOP - BOTTOM)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
             'font-size="12">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
             f'<text x="{LEFT}" y="22" font-size="14">A page of 25 with the count, by the size of its box</text>']
    for power in range(low, high + 1):
        at = y(10**power)
        label = f"{10**power / 1000:g} ms"
        parts += [f'<line x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{at:.1f}" y2="{at:.1f}" stroke="#cccccc"/>',
                  f'<text x="{LEFT - 8}" y="{at + 4:.1f}" text-anchor="end">{label}</text>']
    for size in sizes:
        parts += [f'<line x1="{x(size):.1f}" x2="{x(size):.1f}" y1="{TOP}" y2="{HEIGHT - BOTTOM}" stroke="#eeeeee"/>',
                  f'<text x="{x(size):.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{size:,}</text>']
    parts.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2:.0f}" y="{HEIGHT - 12}" text-anchor="middle">'
                 'messages in the box</text>')
    for number, (engine, pages) in enumerate(curves.items()):
        colour = COLOURS[number % len(COLOURS)]
        for page, curve in pages.items():
            points = " ".join(f"{x(size):.1f},{y(value):.1f}" for size, value in zip(sizes, curve))
            dashes = ' stroke-dasharray="6 4"' if page != "first" else ""
            parts.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"{dashes}/>')
            parts += [f'<circle cx="{x(size):.1f}" cy="{y(value):.1f}" r="3" fill="{colour}"/>'
                      for size, value in zip(sizes, curve)]
        at = TOP + 14 + 20 * number
        parts += [f'<line x1="{WIDTH - RIGHT + 20}" x2="{WIDTH - RIGHT + 44}" y1="{at}" y2="{at}" stroke="{colour}" '
                  'stroke-width="2"/>',
                  f'<text x="{WIDTH - RIGHT + 50}" y="{at + 4}">{engine}</text>']
    at = TOP + 14 + 20 * (len(curves) + 1)
    for label, dashes in (("first page", ""), ("middle page", ' stroke-dasharray="6 4"')):
        parts += [f'<line x1="{WIDTH - RIGHT + 20}" x2="{WIDTH - RIGHT + 44}" y1="{at}" y2="{at}" stroke="black" '
                  f'stroke-width="2"{dashes}/>', f'<text x="{WIDTH - RIGHT + 50}" y="{at + 4}">{label}</text>']
        at += 20
    parts.append("</svg>")
    return "\n".join(parts) + "\n"
