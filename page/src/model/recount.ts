import { isoDateOf } from '../dates';
import { askCounted, CameraError } from './api';
import { Size } from './geometry';
import { kAreas, polygonOf, Values } from './settings';
import { Store } from './store';
import { CountRow, Passed, readPassed } from './today';

/** What somebody drew would have counted, and what was counted as it was, by entrance. */
export interface Recounted {
  /** Of yesterday, or of the last day and night where there was nothing yesterday. */
  isYesterday: boolean;
  drawn: Map<number, Passed>;
  recorded: Map<number, Passed>;
  /** Of the recorded ones, those of which no way is left to count again. */
  withoutWay: number;
}

/** From one question to the next: who drags a line asks without an end. */
const kPause = 400;

/** Entrances count every class. */
const classes = ['Person', 'Bicycle', 'Car', 'Motorcycle', 'Airplane', 'Bus', 'Train', 'Truck', 'Boat'];

/** The settings on which it depends what is counted at the entrances. */
export const isOfEntrances = (tag: string) => /^Entrance(\d|sControlPoints)|^IsCameraInside$/.test(tag);

/** An entrance's corners as fractions of the picture; nothing where it is not in use. */
function outline(values: Values, number: number, size: Size): [number, number][] | undefined {
  if (values.get(`Entrance${number}_Active`) !== '1') return undefined;
  // Well inside the pixel, and inside the picture, where everybody is.
  const fraction = (pixel: number, length: number) => Math.min(1, Math.max(0, (pixel + 0.25) / length));
  return polygonOf(values, 'Entrance', number, size).map(({ x, y }) => [
    fraction(x, size.width),
    fraction(y, size.height),
  ]);
}

/** Settings as the camera is asked to count with them. */
export function recountSettings(values: Values, size: Size): string {
  const numbers = Array.from({ length: kAreas }, (_, i) => i + 1);
  return JSON.stringify({
    classes,
    camera_inside: values.get('IsCameraInside') === '1',
    ...Object.fromEntries(numbers.map((number) => [`entrance${number}`, outline(values, number, size)])),
  });
}

/** The day before the camera's today. */
export function yesterday(now: Date): string {
  const today = isoDateOf(now);
  const before = new Date(Date.parse(today) - 86_400_000).toISOString().slice(0, 10);
  return `&from=${before}&to=${today}`;
}

interface Answer {
  counts: CountRow[];
  recorded: CountRow[];
  without_path: number;
}

async function askCamera(settings: string): Promise<Recounted> {
  for (const isYesterday of [true, false]) {
    const span = isYesterday ? yesterday(new Date()) : '';
    const { counts, recorded, without_path } = (await askCounted(`recount${span}`, settings)) as Answer;
    if (!isYesterday || counts.length + recorded.length > 0)
      return { isYesterday, drawn: readPassed(counts), recorded: readPassed(recorded), withoutWay: without_path };
  }
  throw new Error('unreachable');
}

/** Has the camera count again with entrances that are being drawn: one question at a time, and the newest at last. */
export class RecountStore extends Store {
  /** Of the settings that were asked with last; null before there is an answer, or where there is none. */
  result: Recounted | null = null;
  trouble: CameraError | null = null;
  /** Whether the newest settings have not been answered yet. */
  isAsking = false;
  private wanted = '';
  private answered = '';

  /** Wants the counts for these settings; again and again, as they change. */
  async want(settings: string): Promise<void> {
    this.wanted = settings;
    if (this.isAsking || this.wanted === this.answered) return;
    this.isAsking = true;
    this.changed();
    while (this.wanted !== this.answered) {
      const settings = this.wanted;
      try {
        this.result = await askCamera(settings);
        this.trouble = null;
      } catch (error) {
        this.result = null;
        this.trouble = error instanceof CameraError ? error : new CameraError('refused', 0);
      }
      this.answered = settings;
      this.changed();
      await new Promise((resolve) => setTimeout(resolve, kPause));
    }
    this.isAsking = false;
    this.changed();
  }

  /** Nobody draws any more; what is asked the next time is asked anew. */
  forget(): void {
    this.wanted = this.answered = '';
    this.result = this.trouble = null;
  }
}
