import { askCounted, CameraError, Trouble } from './api';
import { Store } from './store';

/** In and out of an entrance. */
export interface Passed {
  cameIn: number;
  wentOut: number;
}

/** Two days back begins the day that it is now wherever the camera hangs, one of 25 hours, too. */
const kBack = 48 * 3_600_000;
/** People may come every second: so many milliseconds from one question to the next. */
const kPause = 3000;
/** So many times as long as the answer took: a camera that must look into its archive for it has other things to do. */
const kRest = 20;

/** A count as the camera tells it; of one class, where it tells them apart. */
export interface CountRow {
  entrance: number;
  direction: string;
  count: number;
}

/** The sums by entrance. */
export function readPassed(counts: CountRow[]): Map<number, Passed> {
  const passed = new Map<number, Passed>();
  for (const { entrance, direction, count } of counts) {
    const sums = passed.get(entrance) ?? { cameIn: 0, wentOut: 0 };
    sums[direction === 'in' ? 'cameIn' : 'wentOut'] += count;
    passed.set(entrance, sums);
  }
  return passed;
}

/** The newest day of the camera's counts per day, by entrance. Throws on what is none. */
export function readToday(answer: unknown): Map<number, Passed> {
  const { rows } = answer as { rows: { counts: CountRow[] }[] };
  return readPassed(rows[rows.length - 1].counts);
}

/** What has come and gone since midnight by the camera's clock. */
export class Today extends Store {
  /** By entrance, one without any left out; null before it is known. */
  counts: Map<number, Passed> | null = null;
  trouble: Trouble | null = null;
  private asking = false;
  private isOld = false;

  /** Asks anew; once more afterwards when it was called meanwhile. */
  async load(): Promise<void> {
    this.isOld = true;
    if (this.asking) return;
    this.asking = true;
    while (this.isOld) {
      this.isOld = false;
      const began = performance.now();
      await this.askOnce();
      const rest = Math.max(kPause, kRest * (performance.now() - began));
      await new Promise((resolve) => setTimeout(resolve, rest));
    }
    this.asking = false;
  }

  private async askOnce(): Promise<void> {
    const from = new Date(Date.now() - kBack).toISOString();
    try {
      this.counts = readToday(await askCounted(`get_counts&from=${from}&step=day&by=entrance,direction`));
      this.trouble = null;
    } catch (error) {
      this.trouble = error instanceof CameraError ? error.trouble : 'refused';
    }
    this.changed();
  }
}
