/*
 * The report: one row per period, one column per camera, place, class and measure. It is read byte by byte as it
 * arrives, into one array of numbers per column, so that years of it stay usable.
 */

export type Measure = 'occupancy' | 'entries' | 'exits' | 'crowd' | 'average';
export const measures: Measure[] = ['occupancy', 'entries', 'exits', 'crowd', 'average'];

export interface Column {
  measure: Measure;
  /** The number of the area or entrance, 0 where there is none. */
  place: number;
  objectClass: string;
  camera: string;
  values: Int32Array;
}

export interface Report {
  /** When the period of each row ended: seconds since 1970 as if the camera's local time were UTC, ascending. */
  times: Float64Array;
  columns: Column[];
  /** Lines that were no rows. */
  skipped: number;
}

const kClass = '(Person|Bicycle|Car|Motorcycle|Airplane|Bus|Train|Truck|Boat)';
const kArea = new RegExp(`^(Average)?AOI([123])_${kClass}_(.*)$`, 's');
const kEntrance = new RegExp(`^Entrance([123])_(Entrances|Exits)_${kClass}_(.*)$`, 's');
const kOccupancy = new RegExp(`^Occup_${kClass}_(.*)$`, 's');

type Heading = Omit<Column, 'values'>;

export function readHeading(name: string): Heading | null {
  let found = kArea.exec(name);
  if (found) {
    return {
      measure: found[1] ? 'average' : 'crowd',
      place: Number(found[2]),
      objectClass: found[3],
      camera: found[4],
    };
  }
  found = kEntrance.exec(name);
  if (found) {
    const measure = found[2] === 'Exits' ? 'exits' : 'entries';
    return { measure, place: Number(found[1]), objectClass: found[3], camera: found[4] };
  }
  found = kOccupancy.exec(name);
  return found ? { measure: 'occupancy', place: 0, objectClass: found[1], camera: found[2] } : null;
}

/** The columns of a header line. A camera's name may hold commas: what heads no column belongs to the one before. */
export function readHeader(line: string): Heading[] {
  const names: string[] = [];
  for (const part of line.split(',').slice(1)) {
    if (names.length === 0 || readHeading(part)) names.push(part);
    else names[names.length - 1] += `,${part}`;
  }
  return names.map(readHeading).filter((heading) => heading !== null);
}

const kComma = 44;
const kMinus = 45;
const kZero = 48;
const kNine = 57;
const kNewline = 10;
const kDateLength = 19;
const kFirstCapacity = 1024;

function digits(bytes: Uint8Array, from: number, count: number): number {
  let value = 0;
  for (let i = from; i < from + count; ++i) {
    const digit = bytes[i] - kZero;
    if (digit < 0 || digit > 9) return NaN;
    value = value * 10 + digit;
  }
  return value;
}

/** "2024-05-01 13:45:00" in seconds, NaN for anything else. */
function readTime(bytes: Uint8Array, at: number): number {
  const d = (from: number, count: number) => digits(bytes, at + from, count);
  return Date.UTC(d(0, 4), d(5, 2) - 1, d(8, 2), d(11, 2), d(14, 2), d(17, 2)) / 1000;
}

export class ReportReader {
  private rest = new Uint8Array(0);
  private headings: Heading[] | null = null;
  private values: Int32Array[] = [];
  private times = new Float64Array(kFirstCapacity);
  private rows = 0;
  private skipped = 0;

  /** latest: no row is of a later time, but of a clock that was wrong. */
  constructor(private readonly latest = Infinity) {}

  push(chunk: Uint8Array): void {
    let bytes = chunk;
    if (this.rest.length > 0) {
      bytes = new Uint8Array(this.rest.length + chunk.length);
      bytes.set(this.rest);
      bytes.set(chunk, this.rest.length);
    }
    let start = 0;
    for (let end = bytes.indexOf(kNewline); end >= 0; end = bytes.indexOf(kNewline, start)) {
      this.line(bytes, start, end);
      start = end + 1;
    }
    this.rest = bytes.slice(start);
  }

  finish(): Report {
    if (this.rest.length > 0) this.line(this.rest, 0, this.rest.length);
    const columns = (this.headings ?? []).map((heading, i) => ({
      ...heading,
      values: this.values[i].slice(0, this.rows),
    }));
    return { times: this.times.slice(0, this.rows), columns, skipped: this.skipped };
  }

  private line(bytes: Uint8Array, start: number, end: number): void {
    if (!this.headings) {
      this.headings = readHeader(new TextDecoder().decode(bytes.subarray(start, end)));
      this.values = this.headings.map(() => new Int32Array(kFirstCapacity));
      return;
    }
    const time = end - start >= kDateLength ? readTime(bytes, start) : NaN;
    if (Number.isNaN(time) || time > this.latest || (this.rows > 0 && time < this.times[this.rows - 1])) {
      ++this.skipped;
      return;
    }
    if (this.rows === this.times.length) this.grow();
    this.times[this.rows] = time;
    let at = start + kDateLength;
    for (const column of this.values) {
      let value = 0;
      const negative = bytes[at] === kComma && bytes[at + 1] === kMinus;
      for (at += negative ? 2 : 1; at < end && bytes[at] !== kComma; ++at) {
        const byte = bytes[at];
        if (byte >= kZero && byte <= kNine) value = value * 10 + (byte - kZero);
      }
      column[this.rows] = negative ? -value : value;
    }
    ++this.rows;
  }

  private grow(): void {
    const times = new Float64Array(this.times.length * 2);
    times.set(this.times);
    this.times = times;
    this.values = this.values.map((column) => {
      const longer = new Int32Array(column.length * 2);
      longer.set(column);
      return longer;
    });
  }
}

export type Split = 'place' | 'objectClass' | 'camera' | 'none';

export interface Question {
  measure: Measure;
  split: Split;
  /** Only this camera or class; null for all. A camera's name may be "". */
  camera: string | null;
  objectClass: string | null;
  /** Seconds: the periods that began from the first to before the second. */
  from: number;
  to: number;
  /** Seconds that are put together to one point; 0 for every period by itself. */
  bucket: number;
  /** How many seconds a period has. */
  period: number;
}

export interface Series {
  /** What the series is about: a place's number, a class, a camera, or "". */
  key: string;
  /** Whose place it is: entrance 1 of one camera is another than that of the next. Null for what is of no place. */
  camera: string | null;
  values: number[];
}

export interface Answer {
  /** When each bucket began; of single periods, when each ended. */
  times: number[];
  series: Series[];
}

/** When the period of a row began: at the end of the one before, or later when the camera was away in between. */
export function startOf(times: Float64Array, row: number, period: number): number {
  return Math.max(times[row] - period, row > 0 ? times[row - 1] : -Infinity);
}

/** The first row whose period began at or after a time. */
export function rowAt(times: Float64Array, time: number, period: number): number {
  let [low, high] = [0, times.length];
  while (low < high) {
    const middle = (low + high) >> 1;
    if (startOf(times, middle, period) < time) low = middle + 1;
    else high = middle;
  }
  return low;
}

/** Entries and exits of a bucket add up; of the others its highest value counts. */
export function answer(report: Report, question: Question): Answer {
  const chosen = report.columns.filter(
    (column) =>
      column.measure === question.measure &&
      (question.camera === null || column.camera === question.camera) &&
      (question.objectClass === null || column.objectClass === question.objectClass),
  );
  const groups = new Map<string, { key: string; camera: string | null; columns: Int32Array[] }>();
  for (const column of chosen) {
    const key = question.split === 'none' ? '' : String(column[question.split]);
    const camera = question.split === 'place' && column.place > 0 ? column.camera : null;
    const name = JSON.stringify([camera, key]);
    if (!groups.has(name)) groups.set(name, { key, camera, columns: [] });
    groups.get(name)!.columns.push(column.values);
  }
  const adds = question.measure === 'entries' || question.measure === 'exits';
  const first = rowAt(report.times, question.from, question.period);
  const last = rowAt(report.times, question.to, question.period);
  const times: number[] = [];
  const columns = [...groups.values()].map((group) => group.columns);
  const series = [...groups.values()].map(({ key, camera }): Series => ({ key, camera, values: [] }));
  for (let row = first; row < last; ++row) {
    const { bucket, period } = question;
    const time = bucket > 0 ? Math.floor(startOf(report.times, row, period) / bucket) * bucket : report.times[row];
    const isNew = times[times.length - 1] !== time;
    if (isNew) times.push(time);
    for (let i = 0; i < columns.length; ++i) {
      let sum = 0;
      for (const values of columns[i]) sum += values[row];
      const points = series[i].values;
      if (isNew) points.push(sum);
      else
        points[points.length - 1] = adds ? points[points.length - 1] + sum : Math.max(points[points.length - 1], sum);
    }
  }
  const order = ({ camera, key }: Series) => `${camera ?? ''}\n${key}`;
  series.sort((a, b) => (order(a) < order(b) ? -1 : 1));
  return { times, series };
}
