import { actionAddress, ask, kMostWait, post, request } from './api';
import { Store } from './store';
import { CountRow, Passed, readPassed } from './today';

interface Run {
  /** When the run before this one wrote its last line; null where nothing tells. */
  at: string | null;
  /** Seconds from there to this run's start. */
  gap: number | null;
  occupancy: number | null;
  lost: CountRow[];
}

/** So long after a start there may be something to take over: later, more has come and gone than was there. */
const kWorthAsking = 12 * 3_600_000;
const kDismissed = 'senvo-restart-left';

function sumOf(passed: Iterable<Passed>): Passed {
  const sum = { cameIn: 0, wentOut: 0 };
  for (const { cameIn, wentOut } of passed) {
    sum.cameIn += cameIn;
    sum.wentOut += wentOut;
  }
  return sum;
}

/** Whether somebody has said since a start how many there are, or the start itself went on with them. */
async function isSettled(start: Date): Promise<boolean> {
  // A little before, for the line of the start is written once the ledger is open.
  const from = new Date(start.getTime() - 1000).toISOString();
  const response = await request(actionAddress(`get_ledger&kinds=start,reset,corrected&newest=1&from=${from}`), {
    signal: AbortSignal.timeout(kMostWait),
  });
  const lines = (await response.text()).split('\n').filter(Boolean);
  return lines.some((text) => {
    const { kind, occupancy } = JSON.parse(text) as { kind: string; occupancy?: number };
    return kind !== 'start' || (occupancy ?? 0) > 0;
  });
}

/** What was inside before the camera was started, for somebody to take it over. */
export class Before extends Store {
  /** Null where there is nothing to take over. */
  inside: number | null = null;
  start: Date | null = null;
  /** What is in no report. */
  lost: Passed = { cameIn: 0, wentOut: 0 };

  async load(): Promise<void> {
    this.inside = null;
    try {
      const { at, gap, occupancy, lost } = JSON.parse(await ask('occupancy_before')) as Run;
      if (at !== null && gap !== null && occupancy) {
        const start = new Date(Date.parse(at) + gap * 1000);
        const isLate = Date.now() - start.getTime() > kWorthAsking;
        if (!isLate && localStorage.getItem(kDismissed) !== at && !(await isSettled(start))) {
          this.inside = occupancy;
          this.start = start;
          this.lost = sumOf(readPassed(lost).values());
          this.dismiss = () => localStorage.setItem(kDismissed, at);
        }
      }
    } catch {
      // A camera that does not tell has nothing to offer.
    }
    this.changed();
  }

  private dismiss = (): void => {};

  /** Leaves the count as it is, on this device for good. */
  leave(): void {
    this.dismiss();
    this.inside = null;
    this.changed();
  }

  /** Sets the camera's count. Throws CameraError. */
  async takeOver(inside: number, remark: string): Promise<void> {
    await post(`correct_occupancy&to=${inside}&remark=${encodeURIComponent(remark)}`, '');
    this.inside = null;
    this.changed();
  }
}
