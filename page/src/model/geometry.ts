/* Polygons on the picture, in pixels of the analysis stream. */

export interface Point {
  x: number;
  y: number;
}

export interface Size {
  width: number;
  height: number;
}

/** Twice the area of the triangle, positive when c lies to the left of a→b (with y growing downwards: to its right). */
function cross(a: Point, b: Point, c: Point): number {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

function onSegment(a: Point, b: Point, p: Point): boolean {
  return (
    cross(a, b, p) === 0 &&
    Math.min(a.x, b.x) <= p.x &&
    p.x <= Math.max(a.x, b.x) &&
    Math.min(a.y, b.y) <= p.y &&
    p.y <= Math.max(a.y, b.y)
  );
}

/** Whether two segments share a point. */
export function segmentsMeet(a: Point, b: Point, c: Point, d: Point): boolean {
  const side = (p: Point, q: Point, r: Point) => Math.sign(cross(p, q, r));
  if (side(a, b, c) * side(a, b, d) < 0 && side(c, d, a) * side(c, d, b) < 0) return true;
  return onSegment(a, b, c) || onSegment(a, b, d) || onSegment(c, d, a) || onSegment(c, d, b);
}

const sameSpot = (a: Point, b: Point) => a.x === b.x && a.y === b.y;

/** Corners that lie where their predecessor lies draw nothing. */
function withoutRepeats(polygon: Point[]): Point[] {
  return polygon.filter((point, i) => !sameSpot(point, polygon[(i + polygon.length - 1) % polygon.length]));
}

/** Whether the outline crosses or touches itself, or turns back upon itself. */
export function crossesItself(polygon: Point[]): boolean {
  const corners = withoutRepeats(polygon);
  const n = corners.length;
  for (let i = 0; i < n; ++i) {
    const [a, b] = [corners[i], corners[(i + 1) % n]];
    for (let j = i + 1; j < n; ++j) {
      const [c, d] = [corners[j], corners[(j + 1) % n]];
      const follows = j === i + 1;
      const closes = (j + 1) % n === i;
      if (follows || closes) {
        // Neighbours share a corner; beyond it they may only run on top of one another.
        if (
          n > 2 &&
          ((follows && onSegment(a, b, d)) ||
            (follows && onSegment(c, d, a)) ||
            (closes && onSegment(c, d, b)) ||
            (closes && onSegment(a, b, c)))
        ) {
          return true;
        }
      } else if (segmentsMeet(a, b, c, d)) {
        return true;
      }
    }
  }
  return false;
}

export function leavesPicture(polygon: Point[], size: Size): boolean {
  return polygon.some((p) => p.x < 0 || p.y < 0 || p.x > size.width || p.y > size.height);
}

const distance = (a: Point, b: Point) => Math.hypot(b.x - a.x, b.y - a.y);

/** Whether a point is inside or on the outline. */
function holds(polygon: Point[], p: Point): boolean {
  let inside = false;
  for (let i = 0; i < polygon.length; ++i) {
    const [a, b] = [polygon[i], polygon[(i + 1) % polygon.length]];
    const edge = distance(a, b);
    if (edge > 0 && Math.abs(cross(a, b, p)) / edge < 1e-6 && distance(a, p) + distance(p, b) < edge + 1e-6)
      return true;
    if (a.y > p.y !== b.y > p.y && p.x < a.x + ((p.y - a.y) / (b.y - a.y)) * (b.x - a.x)) inside = !inside;
  }
  return inside;
}

/** Corners that are nearer to one another than so many pixels count as one. */
function joined(polygon: Point[], spot: number): Point[] {
  const corners: Point[] = [];
  for (const p of polygon) {
    if (corners.length === 0 || distance(corners[corners.length - 1], p) >= spot) corners.push(p);
  }
  while (corners.length > 1 && distance(corners[0], corners[corners.length - 1]) < spot) corners.pop();
  return corners;
}

/**
 * The narrowest passage through a polygon that does not cross itself: the shortest way inside it from a corner to a
 * facing side, or from one dent to another. Sides that meet in a corner do not face one another, so that a corner is not
 * narrow for running to a point; nor is one that is cut off by less than `spot` pixels. 0 when nothing is left.
 */
export function narrowestPassage(polygon: Point[], spot: number): number {
  const corners = joined(polygon, spot);
  const n = corners.length;
  if (n < 3) return 0;
  const turn = Math.sign(corners.reduce((sum, p, i) => sum + cross({ x: 0, y: 0 }, p, corners[(i + 1) % n]), 0));
  const isDent = (i: number) => cross(corners[(i + n - 1) % n], corners[i], corners[(i + 1) % n]) * turn < 0;
  const areNeighbours = (i: number, j: number) => (i + 1) % n === j || (j + 1) % n === i;
  let narrowest = Infinity;
  const consider = (from: Point, to: Point, beside: Point = { x: 0, y: 0 }) => {
    const width = distance(from, to);
    if (width < narrowest && holds(corners, { x: (from.x + to.x) / 2 + beside.x, y: (from.y + to.y) / 2 + beside.y }))
      narrowest = width;
  };
  for (let i = 0; i < n; ++i) {
    const p = corners[i];
    for (let j = 0; j < n; ++j) {
      const k = (j + 1) % n;
      if (i === j || i === k) continue;
      const [a, b] = [corners[j], corners[k]];
      const along = ((p.x - a.x) * (b.x - a.x) + (p.y - a.y) * (b.y - a.y)) / distance(a, b) ** 2;
      // Square to the side, where that meets it; at its end it has to be inside a little before that.
      const before = along < 1e-9 ? 1e-3 : along > 1 - 1e-9 ? -1e-3 : 0;
      const foot = { x: a.x + along * (b.x - a.x), y: a.y + along * (b.y - a.y) };
      if (along > -1e-9 && along < 1 + 1e-9) consider(p, foot, { x: before * (b.x - a.x), y: before * (b.y - a.y) });
      else if (isDent(i) && isDent(j) && !areNeighbours(i, j)) consider(p, a);
    }
  }
  return narrowest === Infinity ? 0 : narrowest;
}

const kSecondsAcrossPicture = 4;

/** How far a person who walks through the picture's longer side in four seconds gets from one look to the next. */
export function stepPerCycle(size: Size, cycleMilliseconds: number): number {
  return (Math.max(size.width, size.height) * cycleMilliseconds) / (kSecondsAcrossPicture * 1000);
}

/** A width that is less than a step, and the step, in percent of the picture's longer side: with a decimal, and never the same. */
export function narrowness(width: number, step: number, size: Size): [number, number] {
  const tenths = (length: number) => (length / Math.max(size.width, size.height)) * 1000;
  return [Math.floor(tenths(width)) / 10, Math.ceil(tenths(step)) / 10];
}

export function centre(polygon: Point[]): Point {
  const xs = polygon.map((p) => p.x);
  const ys = polygon.map((p) => p.y);
  return { x: (Math.min(...xs) + Math.max(...xs)) / 2, y: (Math.min(...ys) + Math.max(...ys)) / 2 };
}

function expectCorner(polygon: Point[], i: number): void {
  if (!(i in polygon)) throw new RangeError(`expected a corner from 0 to ${polygon.length - 1}, got ${i}`);
}

/** The polygon with a corner in the middle of the edge that follows corner i. Throws RangeError when there is no such corner. */
export function withCornerAfter(polygon: Point[], i: number): Point[] {
  expectCorner(polygon, i);
  const next = polygon[(i + 1) % polygon.length];
  const middle = { x: Math.round((polygon[i].x + next.x) / 2), y: Math.round((polygon[i].y + next.y) / 2) };
  return [...polygon.slice(0, i + 1), middle, ...polygon.slice(i + 1)];
}

/** The corner after which the longest edge begins. */
export function longestEdge(polygon: Point[]): number {
  const lengths = polygon.map((p, i) => {
    const next = polygon[(i + 1) % polygon.length];
    return Math.hypot(next.x - p.x, next.y - p.y);
  });
  return lengths.indexOf(Math.max(...lengths));
}

/** The corner whose absence changes the polygon least. */
export function leastCorner(polygon: Point[]): number {
  const n = polygon.length;
  const shares = polygon.map((p, i) => Math.abs(cross(polygon[(i + n - 1) % n], p, polygon[(i + 1) % n])));
  return shares.indexOf(Math.min(...shares));
}

/** Throws RangeError when there is no corner i. */
export function withoutCorner(polygon: Point[], i: number): Point[] {
  expectCorner(polygon, i);
  return polygon.filter((_, at) => at !== i);
}

/** Moves the whole polygon, at most as far as the picture allows. One that is not inside moves freely. */
export function moved(polygon: Point[], by: Point, size: Size): Point[] {
  const limit = (values: number[], wanted: number, most: number) => {
    const [lowest, highest] = [Math.min(...values), Math.max(...values)];
    return lowest < 0 || highest > most ? wanted : Math.max(-lowest, Math.min(most - highest, wanted));
  };
  const dx = Math.round(
    limit(
      polygon.map((p) => p.x),
      by.x,
      size.width - 1,
    ),
  );
  const dy = Math.round(
    limit(
      polygon.map((p) => p.y),
      by.y,
      size.height - 1,
    ),
  );
  return polygon.map((p) => ({ x: p.x + dx, y: p.y + dy }));
}

export function insidePicture(point: Point, size: Size): Point {
  const clamp = (value: number, most: number) => Math.max(0, Math.min(most, Math.round(value)));
  return { x: clamp(point.x, size.width - 1), y: clamp(point.y, size.height - 1) };
}
