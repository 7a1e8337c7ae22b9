import { describe, expect, test } from 'vitest';
import {
  crossesItself,
  insidePicture,
  leastCorner,
  leavesPicture,
  longestEdge,
  moved,
  narrowestPassage,
  narrowness,
  Point,
  stepPerCycle,
  withCornerAfter,
  withoutCorner,
} from '../../src/model/geometry';

const polygon = (...pairs: [number, number][]): Point[] => pairs.map(([x, y]) => ({ x, y }));
const square = polygon([0, 0], [100, 0], [100, 100], [0, 100]);
const size = { width: 200, height: 150 };

describe('crossesItself', () => {
  test.each([
    ['a square', square, false],
    ['a square the other way round', [...square].reverse(), false],
    ['a triangle', polygon([0, 0], [10, 0], [0, 10]), false],
    ['an arrow head', polygon([0, 0], [50, 20], [100, 0], [50, 100]), false],
    ['a corner on a straight edge', polygon([0, 0], [50, 0], [100, 0], [100, 100], [0, 100]), false],
    ['two corners on one spot', polygon([0, 0], [100, 0], [100, 0], [100, 100], [0, 100]), false],
    ['first and last corner on one spot', polygon([0, 0], [100, 0], [100, 100], [0, 100], [0, 0]), false],
    ['a bow tie', polygon([0, 0], [100, 100], [100, 0], [0, 100]), true],
    ['a pentagram', polygon([50, 0], [80, 100], [0, 35], [100, 35], [20, 100]), true],
    ['a corner that touches an edge', polygon([0, 0], [100, 0], [100, 100], [50, 0], [0, 100]), true],
    ['a spike that turns back upon itself', polygon([0, 0], [100, 0], [100, 100], [100, 50], [0, 50]), true],
    ['a loop through one corner twice', polygon([0, 0], [50, 50], [100, 0], [100, 100], [50, 50], [0, 100]), true],
    ['a triangle without area', polygon([0, 0], [100, 0], [50, 0]), true],
    ['nothing but one spot', polygon([5, 5], [5, 5], [5, 5]), false],
  ])('%s', (_, corners, expected) => {
    expect(crossesItself(corners)).toBe(expected);
  });
});

test.each([
  ['inside', square, false],
  ['on the edge', polygon([0, 0], [200, 0], [200, 150]), false],
  ['left of it', polygon([-1, 0], [50, 0], [50, 50]), true],
  ['below it', polygon([0, 0], [50, 151], [50, 50]), true],
])('leavesPicture: %s', (_, corners, expected) => {
  expect(leavesPicture(corners, size)).toBe(expected);
});

const kSpot = 2;
test.each([
  ['a square', square, 100],
  ['a lying bar', polygon([0, 0], [100, 0], [100, 7], [0, 7]), 7],
  ['a bar that stands on its corner', polygon([0, 0], [60, 80], [52, 86], [-8, 6]), 10],
  ['a triangle is as narrow as its least height', polygon([0, 0], [60, 0], [0, 80]), 48],
  ['a triangle with a blunt corner, too', polygon([0, 0], [100, 0], [50, 10]), 10],
  ['a dented square at its dent', polygon([0, 0], [100, 0], [100, 100], [50, 10], [0, 100]), 10],
  [
    'an angle of two bars, which is wide from outside',
    polygon([0, 0], [100, 0], [100, 8], [8, 8], [8, 100], [0, 100]),
    8,
  ],
  ['between two dents that face each other', polygon([0, 0], [50, 44], [100, 0], [100, 100], [50, 56], [0, 100]), 12],
  [
    'two corners that are near only from outside',
    polygon([0, 0], [100, 0], [100, 100], [52, 100], [52, 50], [48, 50], [48, 100], [0, 100]),
    48,
  ],
  ['a line', polygon([0, 0], [10, 10], [20, 20]), 0],
  ['a spot', polygon([4, 4], [4, 4], [4, 4]), 0],
])('narrowestPassage: %s', (_, corners, expected) => {
  expect(narrowestPassage(corners, kSpot)).toBeCloseTo(expected, 9);
  expect(narrowestPassage([...corners].reverse(), kSpot)).toBeCloseTo(expected, 9);
});

test('a corner that is cut off by a pixel is still a corner', () => {
  expect(narrowestPassage(polygon([0, 0], [60, 0], [0, 79], [0, 80]), kSpot)).toBeCloseTo(48, 0);
  expect(narrowestPassage(polygon([0, 0], [60, 0], [0, 70], [0, 80]), kSpot)).toBeLessThan(12);
});

test('a walking person crosses a fortieth of the picture in a tenth of a second', () => {
  expect(stepPerCycle({ width: 1280, height: 720 }, 100)).toBe(32);
  expect(stepPerCycle({ width: 720, height: 1280 }, 200)).toBe(64);
});

test.each([
  [12, 32, { width: 1280, height: 720 }, [0.9, 2.5]],
  [31.9, 32, { width: 1280, height: 720 }, [2.4, 2.5]],
  [0, 64, { width: 720, height: 1280 }, [0, 5]],
  [33, 33.1, { width: 1280, height: 720 }, [2.5, 2.6]],
])('%d pixels where a step has %d are told in percent', (width, step, picture, expected) => {
  expect(narrowness(width, step, picture)).toEqual(expected);
});

describe('corners', () => {
  test('are added in the middle of an edge, also of the last', () => {
    expect(withCornerAfter(square, 0)[1]).toEqual({ x: 50, y: 0 });
    expect(withCornerAfter(square, 3)).toEqual([...square, { x: 0, y: 50 }]);
  });
  test.each([4, -1, 0.5])('that are not there are refused: %d', (corner) => {
    expect(() => withCornerAfter(square, corner)).toThrow(`expected a corner from 0 to 3, got ${corner}`);
    expect(() => withoutCorner(square, corner)).toThrow(`expected a corner from 0 to 3, got ${corner}`);
  });
  test('the longest edge may be the closing one', () => {
    expect(longestEdge(polygon([0, 0], [10, 0], [10, 90]))).toBe(2);
  });
  test('the least corner is one on a straight edge', () => {
    const five = withCornerAfter(square, 1);
    expect(withoutCorner(five, leastCorner(five))).toEqual(square);
  });
});

describe('moving', () => {
  test('stops at the edge of the picture and keeps the shape', () => {
    expect(moved(square, { x: 500, y: -5 }, size)).toEqual(polygon([99, 0], [199, 0], [199, 100], [99, 100]));
  });
  test('brings back what lies outside', () => {
    expect(moved(polygon([-50, 0], [10, 0], [10, 10]), { x: 50, y: 0 }, size)).toEqual(
      polygon([0, 0], [60, 0], [60, 10]),
    );
  });
  test('a single corner stays on a pixel of the picture', () => {
    expect(insidePicture({ x: 1e9, y: -3 }, size)).toEqual({ x: 199, y: 0 });
    expect(insidePicture({ x: 3.4, y: 3.6 }, size)).toEqual({ x: 3, y: 4 });
  });
});
