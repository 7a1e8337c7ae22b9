import { Pass } from './accuracy';
import { ask, CameraError, post, Trouble } from './api';
import { Store } from './store';

export const kLights = ['daylight', 'lamps', 'dark'] as const;
export type Light = (typeof kLights)[number];

/** A count by hand that goes on, or that is over and not handed in yet. Times are the camera's, in milliseconds since 1970. */
interface Count {
  begin: number;
  end: number;
  light: Light;
  remark: string;
  taps: Pass[];
  /** How far the camera's clock is ahead of this device's. */
  ahead: number;
}

export const kLeastMinutes = 1;
export const kMostMinutes = 60;
/** The camera keeps no more. */
const kMostTaps = 3000;
const kKept = 'senvo-hand-count';
/** The camera is asked for its time so often: what came back soonest is nearest to it. */
const kAsked = 5;

/** How far the camera's clock is ahead of this device's, in milliseconds. Throws CameraError. */
export async function measureAhead(): Promise<number> {
  let [ahead, least] = [0, Infinity];
  for (let i = 0; i < kAsked; ++i) {
    const asked = Date.now();
    const { time } = JSON.parse(await ask('get_about')) as { time: string };
    const answered = Date.now();
    if (answered - asked < least) {
      least = answered - asked;
      ahead = Date.parse(time) - (asked + answered) / 2;
    }
  }
  return Math.round(ahead);
}

const textOf = (time: number) => new Date(time).toISOString();

/**
 * Somebody counts at the door what the camera counts, too. It is kept by the browser until the camera has it: neither a page
 * that is read anew nor a camera that is away loses a tap.
 */
export class HandCount extends Store {
  /** Null while nobody counts. */
  count: Count | null = null;
  isBusy = false;
  trouble: Trouble | null = null;
  private timer: ReturnType<typeof setTimeout> | undefined;

  constructor() {
    super();
    try {
      this.count = JSON.parse(localStorage.getItem(kKept) ?? 'null') as Count | null;
    } catch {
      // Nothing was kept, or nothing that can be read.
    }
    this.wake();
  }

  /** By the camera's clock. */
  now(): number {
    return Date.now() + (this.count?.ahead ?? 0);
  }

  /** Whether taps count; else the time is over, and it is to be handed in. */
  get isOn(): boolean {
    return this.count !== null && this.now() < this.count.end;
  }

  get isFull(): boolean {
    return (this.count?.taps.length ?? 0) >= kMostTaps;
  }

  /** Begins once the camera has told its time. */
  async begin(minutes: number, light: Light, remark: string): Promise<void> {
    await this.attempt(async () => {
      const ahead = await measureAhead();
      const begin = Date.now() + ahead;
      this.set({ begin, end: begin + minutes * 60_000, light, remark, taps: [], ahead });
    });
  }

  tap(entrance: number, by: 1 | -1): void {
    const { count } = this;
    if (count && this.isOn && !this.isFull)
      this.set({ ...count, taps: [...count.taps, { time: this.now(), entrance, by }] });
  }

  undo(): void {
    if (this.count) this.set({ ...this.count, taps: this.count.taps.slice(0, -1) });
  }

  /** Ends it before its time, but not before its first minute: a shorter one is no count. */
  finish(): void {
    const { count } = this;
    if (count && this.canFinish) this.set({ ...count, end: Math.min(count.end, this.now()) });
  }

  get canFinish(): boolean {
    return this.count !== null && this.now() - this.count.begin >= kLeastMinutes * 60_000;
  }

  giveUp(): void {
    this.set(null);
  }

  /** Hands it in once it is over; it stays where the camera does not take it. */
  async handIn(): Promise<void> {
    const { count } = this;
    if (!count || this.isOn) return;
    await this.attempt(async () => {
      const taps = count.taps.map(({ time, entrance, by }) => ({
        t: textOf(time),
        entrance,
        direction: by > 0 ? 'in' : 'out',
      }));
      const [begin, end] = [textOf(count.begin), textOf(count.end)];
      const { light, remark, ahead } = count;
      await post('hand_count', JSON.stringify({ begin, end, phone_offset: ahead, light, remark, taps }));
      this.set(null);
    });
  }

  private async attempt(deed: () => Promise<void>): Promise<void> {
    if (this.isBusy) return;
    this.isBusy = true;
    this.trouble = null;
    this.changed();
    try {
      await deed();
    } catch (error) {
      this.trouble = error instanceof CameraError ? error.trouble : 'refused';
    }
    this.isBusy = false;
    this.changed();
  }

  private set(count: Count | null): void {
    this.count = count;
    try {
      if (count) localStorage.setItem(kKept, JSON.stringify(count));
      else localStorage.removeItem(kKept);
    } catch {
      // A browser that keeps nothing counts on as long as its page is there.
    }
    this.wake();
    this.changed();
  }

  /** The end of a count comes without anybody. */
  private wake(): void {
    clearTimeout(this.timer);
    if (this.isOn) this.timer = setTimeout(() => this.changed(), this.count!.end - this.now());
  }
}
