/*
 * How well the camera counts, by what somebody counted beside it. The verdict is an equivalence test: two one-sided t-tests
 * at 5 %, which pass where the 90 % interval of the mean difference lies within the margin (D. J. Schuirmann, "A comparison
 * of the two one-sided tests procedure and the power approach for assessing the equivalence of average bioavailability",
 * Journal of Pharmacokinetics and Biopharmaceutics 15, 1987, 657-680).
 */

/** Somebody who passed: as tapped by hand, or as crossed by the camera's count. */
export interface Pass {
  /** Milliseconds since 1970, by the camera's clock. */
  time: number;
  /** 1 to 3. */
  entrance: number;
  by: 1 | -1;
}

/** What the camera made of what was tapped. */
export interface Matched {
  /** Taps in all. */
  byHand: Pass[];
  /** Taps that no crossing is near. */
  missed: Pass[];
  /** Crossings that no tap is near. */
  invented: Pass[];
}

/** A tap and a crossing so far apart, in milliseconds, are still the same. */
export const kApart = 3000;

/** Pairs as many as can be, in order of time, each crossing with the first tap that is near enough: who stays alone. */
function pairUp(taps: Pass[], crossings: Pass[]): { taps: Pass[]; crossings: Pass[] } {
  const alone: { taps: Pass[]; crossings: Pass[] } = { taps: [], crossings: [] };
  let i = 0;
  for (const crossing of crossings) {
    while (i < taps.length && taps[i].time < crossing.time - kApart) alone.taps.push(taps[i++]);
    if (i < taps.length && taps[i].time <= crossing.time + kApart) ++i;
    else alone.crossings.push(crossing);
  }
  alone.taps.push(...taps.slice(i));
  return alone;
}

/**
 * Compares taps with crossings, those of the same entrance and direction. Crossings outside [begin, end] may belong to a tap
 * that is left, but are not invented.
 */
export function match(taps: Pass[], crossings: Pass[], begin: number, end: number): Matched {
  const missed: Pass[] = [];
  const invented: Pass[] = [];
  const byTime = (a: Pass, b: Pass) => a.time - b.time;
  for (const entrance of [1, 2, 3]) {
    for (const by of [1, -1]) {
      const isSame = (pass: Pass) => pass.entrance === entrance && pass.by === by;
      const isInside = ({ time }: Pass) => time >= begin && time <= end;
      const crossed = crossings.filter(isSame).sort(byTime);
      const inside = pairUp(taps.filter(isSame).sort(byTime), crossed.filter(isInside));
      invented.push(...inside.crossings);
      missed.push(
        ...pairUp(
          inside.taps,
          crossed.filter((crossing) => !isInside(crossing)),
        ).taps,
      );
    }
  }
  return { byHand: taps, missed: missed.sort(byTime), invented: invented.sort(byTime) };
}

/** A part of a count by hand. */
export interface Block {
  byHand: number;
  /** How many more the camera counted; negative for fewer. */
  difference: number;
}

/** Parts of a count by hand are about so long, in milliseconds. */
export const kBlock = 300_000;

/** The parts of a count: of five minutes or a little more, all of one length. */
export function blocksOf({ byHand, missed, invented }: Matched, begin: number, end: number): Block[] {
  const count = Math.max(1, Math.floor((end - begin) / kBlock));
  const blocks = Array.from({ length: count }, () => ({ byHand: 0, difference: 0 }));
  const of = ({ time }: Pass) =>
    blocks[Math.min(count - 1, Math.max(0, Math.floor(((time - begin) / (end - begin)) * count)))];
  for (const pass of byHand) ++of(pass).byHand;
  for (const pass of missed) --of(pass).difference;
  for (const pass of invented) ++of(pass).difference;
  return blocks;
}

/** Counted right to so much, as a share of what was counted by hand, is what the verdict is about. */
export const kMargin = 0.05;
/** Fewer blocks say too little of how much they differ. */
export const kLeastBlocks = 10;
/** Nobody counts that long. */
const kMostBlocks = 100_000;

/**
 * The 95 % quantile of Student's t distribution; within 0.0001 from 9 degrees of freedom on (Abramowitz and Stegun,
 * Handbook of Mathematical Functions, 1964, formula 26.7.5).
 */
export function tQuantile(freedom: number): number {
  const z = 1.6448536269514722;
  const [z3, z5, z7, z9] = [z ** 3, z ** 5, z ** 7, z ** 9];
  return (
    z +
    (z3 + z) / (4 * freedom) +
    (5 * z5 + 16 * z3 + 3 * z) / (96 * freedom ** 2) +
    (3 * z7 + 19 * z5 + 17 * z3 - 15 * z) / (384 * freedom ** 3) +
    (79 * z9 + 776 * z7 + 1482 * z5 - 1920 * z3 - 945 * z) / (92_160 * freedom ** 4)
  );
}

export interface Verdict {
  /** Counted by hand, in all blocks. */
  byHand: number;
  blocks: number;
  /** The mean difference as a share of what was counted by hand; null where nobody passed. */
  bias: number | null;
  /** Its 90 % interval; null of fewer than two blocks, or where nobody passed. */
  interval: [number, number] | null;
  /** Whether the error is shown to be within the margin, or beyond it; open where there is too little to tell. */
  is: 'within' | 'beyond' | 'open';
  /**
   * How many more would have to be counted, were they counted like those so far; null where none would do, or where there is
   * nothing to tell it by.
   */
  more: number | null;
}

export function verdictOf(blocks: Block[]): Verdict {
  const count = blocks.length;
  const byHand = blocks.reduce((sum, block) => sum + block.byHand, 0);
  if (byHand === 0) return { byHand, blocks: count, bias: null, interval: null, is: 'open', more: null };
  const perBlock = byHand / count;
  const mean = blocks.reduce((sum, { difference }) => sum + difference, 0) / count;
  const bias = mean / perBlock;
  if (count < 2) return { byHand, blocks: count, bias, interval: null, is: 'open', more: null };
  const squares = blocks.reduce((sum, { difference }) => sum + (difference - mean) ** 2, 0);
  const deviation = Math.sqrt(squares / (count - 1)) / perBlock;
  const reach = (size: number) => tQuantile(size - 1) * (deviation / Math.sqrt(size));
  const interval: [number, number] = [bias - reach(count), bias + reach(count)];
  const isEnough = count >= kLeastBlocks;
  const isWithin = isEnough && interval[0] >= -kMargin && interval[1] <= kMargin;
  const isBeyond = isEnough && (interval[0] > kMargin || interval[1] < -kMargin);
  let more: number | null = 0;
  if (!isWithin) {
    let size = Math.max(kLeastBlocks, count);
    while (size < kMostBlocks && Math.abs(bias) + reach(size) > kMargin) ++size;
    more = size < kMostBlocks ? Math.ceil((size - count) * perBlock) : null;
  }
  return { byHand, blocks: count, bias, interval, is: isWithin ? 'within' : isBeyond ? 'beyond' : 'open', more };
}
