import { describe, expect, test } from 'vitest';
import { english } from '../../src/texts/en';
import { Block, blocksOf, match, Pass, tQuantile, verdictOf } from '../../src/model/accuracy';

const kMinute = 60_000;
const inAt = (seconds: number, entrance = 1): Pass => ({ time: seconds * 1000, entrance, by: 1 });
const outAt = (seconds: number, entrance = 1): Pass => ({ time: seconds * 1000, entrance, by: -1 });
const times = (passes: Pass[]) => passes.map(({ time }) => time / 1000);

describe('taps and crossings', () => {
  test('belong together within three seconds', () => {
    const { missed, invented } = match([inAt(10), inAt(20), inAt(40)], [inAt(13), inAt(17), inAt(43.001)], 0, 60_000);
    expect([times(missed), times(invented)]).toEqual([[40], [43.001]]);
  });

  test('are of one entrance and one direction', () => {
    const { missed, invented } = match(
      [inAt(10), outAt(20), inAt(30, 2)],
      [outAt(10), inAt(20), inAt(30, 3)],
      0,
      60_000,
    );
    expect(times(missed)).toEqual([10, 20, 30]);
    expect(times(invented)).toEqual([10, 20, 30]);
  });

  test('are paired as often as can be, not nearest first', () => {
    // Nearest first would pair 10 with 12 and leave 14 and 8.9 alone.
    const { missed, invented } = match([inAt(10), inAt(14)], [inAt(12), inAt(8.9)], 0, 60_000);
    expect([missed, invented]).toEqual([[], []]);
  });

  test('one crossing is no two taps', () => {
    const { missed } = match([inAt(10), inAt(10.5)], [inAt(10)], 0, 60_000);
    expect(times(missed)).toEqual([10.5]);
  });

  test('crossings outside of the count are not invented, but may belong to a tap in it', () => {
    const { missed, invented } = match([inAt(1), inAt(59)], [inAt(-1), inAt(-1.5), inAt(61), inAt(61.5)], 0, 60_000);
    expect([missed, invented]).toEqual([[], []]);
    // One in it comes first.
    expect(match([inAt(1)], [inAt(-1), inAt(1.2)], 0, 60_000)).toMatchObject({ missed: [], invented: [] });
  });
});

test('blocks have five minutes or a little more, and all taps', () => {
  const byHand = [inAt(0), inAt(359), inAt(360), outAt(719), inAt(720)];
  const parts = blocksOf({ byHand, missed: [inAt(359)], invented: [outAt(400), inAt(500)] }, 0, 12 * kMinute);
  expect(parts).toEqual([
    { byHand: 2, difference: -1 },
    { byHand: 3, difference: 2 },
  ]);
  expect(blocksOf({ byHand, missed: [], invented: [] }, 0, 4 * kMinute)).toHaveLength(1);
  expect(blocksOf({ byHand, missed: [], invented: [] }, 0, 60 * kMinute)).toHaveLength(12);
});

test('the quantile of the t distribution is that of the tables', () => {
  // National Institute of Standards and Technology, e-Handbook of Statistical Methods, 1.3.6.7.2.
  for (const [freedom, value] of [
    [9, 1.833],
    [10, 1.812],
    [19, 1.729],
    [30, 1.697],
    [100, 1.66],
  ])
    expect(tQuantile(freedom)).toBeCloseTo(value, 3);
});

describe('the verdict', () => {
  const blocks = (differences: number[], byHand = 20): Block[] =>
    differences.map((difference) => ({ byHand, difference }));

  test('is within the margin where the interval is', () => {
    // Ten blocks of 20, one off by 1: mean 0.1, deviation 0.316; 0.5 % ± 1.833 · 1.58 % / √10 = ±0.917 %.
    const verdict = verdictOf(blocks([1, 0, 0, 0, 0, 0, 0, 0, 0, 0]));
    expect(verdict).toMatchObject({ byHand: 200, blocks: 10, is: 'within', more: 0 });
    expect(verdict.bias).toBeCloseTo(0.005, 6);
    expect(verdict.interval![0]).toBeCloseTo(0.005 - 0.009166, 5);
    expect(verdict.interval![1]).toBeCloseTo(0.005 + 0.009166, 5);
  });

  test('is none before there are ten blocks, however good they are', () => {
    expect(verdictOf(blocks([0, 0, 0, 0, 0, 0, 0, 0, 0]))).toMatchObject({ is: 'open', bias: 0, more: 20 });
    expect(verdictOf(blocks([0, 0, 0, 0, 0, 0, 0, 0, 0, 0]))).toMatchObject({ is: 'within' });
  });

  test('is beyond the margin where the whole interval is', () => {
    expect(verdictOf(blocks([-4, -3, -4, -5, -4, -4, -3, -5, -4, -4]))).toMatchObject({ is: 'beyond', more: null });
  });

  test('is open where the interval is too wide, and tells how many more that needs', () => {
    // No bias, deviation 2.108 of 20: 10.5 % · t / √n is below 5 % for the first time at n = 14: four blocks more.
    const verdict = verdictOf(blocks([2, -2, 2, -2, 2, -2, 2, -2, 2, -2]));
    expect(verdict).toMatchObject({ is: 'open', bias: 0, more: 80 });
    const narrower = verdictOf(blocks([2, -2, 2, -2, 2, -2, 2, -2, 2, -2, 2, -2, 2, -2]));
    expect(narrower.is).toBe('within');
  });

  test('of an error that is the margin itself, more counts tell nothing', () => {
    expect(verdictOf(blocks([0, 2, 0, 2, 0, 2, 0, 2, 0, 2])).more).toBeNull();
  });

  test('is none where nobody passed', () => {
    expect(verdictOf(blocks([1, 1], 0))).toEqual({
      byHand: 0,
      blocks: 2,
      bias: null,
      interval: null,
      is: 'open',
      more: null,
    });
    expect(verdictOf([])).toMatchObject({ bias: null, is: 'open' });
    expect(verdictOf(blocks([1]))).toMatchObject({ bias: 0.05, interval: null, is: 'open' });
  });

  test('says what is missing to it', () => {
    const said = (differences: number[]) => english.count.verdict(verdictOf(blocks(differences)));
    expect(said([-1])).toMatch(/at least 50 minutes of counting/);
    expect(said([0, 0])).toMatch(/about 160 more have to pass/);
    expect(said([0, 2, 0, 2, 0, 2, 0, 2, 0, 2])).toMatch(/more counts would not show it/);
    expect(said([0, 0, 0, 0, 0, 0, 0, 0, 0, 0])).toMatch(/^Shown: .* no more than 5 %/);
    expect(said([-4, -3, -4, -5, -4, -4, -3, -5, -4, -4])).toMatch(/^Shown: .* more than 5 %/);
    expect(english.count.verdict(verdictOf([]))).toMatch(/^Nobody passed/);
  });
});
