import { actionAddress, CameraError, kMostWait, request } from './api';

/** Somebody who crossed an entrance of this camera. */
export interface Crossing {
  /** 1 to 3. */
  entrance: number;
  /** 1 for in, -1 for out. */
  by: 1 | -1;
  /** By the camera's word for it, such as Person; empty where it tells none. */
  objectClass: string;
  /** By the camera's clock; null where it did not know the time yet. */
  time: Date | null;
}

/** A place in a ledger: of which life of it, and which line. */
interface Place {
  epoch: string;
  seq: number;
}

/** A line of a ledger. Two of the same text are the same one: a number may be given anew, with another time. */
export interface Line extends Place {
  text: string;
  value: { kind?: unknown; entrance?: unknown; direction?: unknown; class?: unknown; t?: unknown };
}

/** What of them is a line. */
export function readLines(lines: string): Line[] {
  return lines.split('\n').flatMap((text): Line[] => {
    try {
      const value = JSON.parse(text) as Line['value'] & { epoch?: unknown; seq?: unknown };
      const { epoch, seq } = value ?? {};
      return typeof epoch === 'string' && typeof seq === 'number' ? [{ epoch, seq, text, value }] : [];
    } catch {
      return [];
    }
  });
}

/** The crossings among a ledger's lines; what is none is passed over. */
export function readCrossings(lines: Line[]): Crossing[] {
  return lines.flatMap(({ value: { kind, entrance, direction, t, ...rest } }): Crossing[] => {
    if (kind !== 'crossing' || !(entrance === 1 || entrance === 2 || entrance === 3)) return [];
    if (direction !== 'in' && direction !== 'out') return [];
    const time = typeof t === 'string' ? new Date(t) : null;
    return [
      {
        entrance,
        by: direction === 'in' ? 1 : -1,
        objectClass: typeof rest.class === 'string' ? rest.class : '',
        time: time && !Number.isNaN(time.getTime()) ? time : null,
      },
    ];
  });
}

/** Throws CameraError when there is none, as before the camera has opened its ledger. */
function placeOf(text: string | null): Place {
  const found = /^(.+):(\d+)$/.exec(text ?? '');
  if (!found) throw new CameraError('restarting', 0);
  return { epoch: found[1], seq: Number(found[2]) };
}

/** Beside what is told, what is written every minute: there is always a line not far back that the camera still has. */
const kKinds = 'crossing,watched,alert,start,reset,corrected';
/** So many lines are remembered: a power cut takes those of five minutes at most. */
const kKept = 1000;
/** So many numbers behind the end the first question begins, for the same reason. */
const kBefore = 300;

/** What a reader has read: every line from a number on, the newest last. */
interface Known {
  epoch: string;
  from: number;
  lines: Line[];
}

/**
 * Follows the camera's ledger: each line of the kinds since the first question is told once, however long nobody asked.
 *
 * It reads what is not safe from a power cut yet, so that nothing is synced for it. So it does not rely on numbers: it asks
 * from the last line that it knows. When that is not what the camera has there, the end was cut off and its numbers may have
 * been given to others, or this is another epoch: then it reads everything again that it remembers, and from the epoch's
 * first line on if that lies before, and tells what it has not told.
 */
export class CrossingReader {
  private known: Known | null = null;

  constructor(private readonly tell: (lines: Line[]) => void) {}

  /** Tells what has come since the last time. Throws CameraError; then all of it is told the next time. */
  async goOn(): Promise<void> {
    if (!this.known) {
      const { end } = await ask('limit=1');
      const from = Math.max(1, end.seq - kBefore + 1);
      this.known = { ...(await readFrom(end.epoch, from)), from };
      return;
    }
    const { lines: known, epoch } = this.known;
    const last = known.at(-1);
    let { from } = this.known;
    let read = await readFrom(epoch, last?.seq ?? from);
    const goesOn = read.epoch === epoch && read.lines[0]?.text === last?.text;
    if (!goesOn) {
      if (read.epoch !== epoch) from = Math.min(from, await firstOf(read.epoch, read.end));
      const asked = read.epoch;
      read = await readFrom(asked, from);
      if (read.epoch !== asked) throw new CameraError('restarting', 0);
    }
    const told = new Set(known.map(({ text }) => text));
    const fresh = read.lines.filter(({ text }) => !told.has(text));
    const lines = (goesOn ? [...known, ...fresh] : read.lines).slice(-kKept);
    this.known = { epoch: read.epoch, from: lines.length < kKept ? from : lines[0].seq, lines };
    this.tell(fresh);
  }
}

/** The lines from a number on, and where the ledger ends. One of another epoch is not read to its end. */
async function readFrom(epoch: string, seq: number): Promise<{ epoch: string; end: number; lines: Line[] }> {
  const lines: Line[] = [];
  for (let at = seq - 1; ; ) {
    const page = await ask(`kinds=${kKinds}&since=${epoch}:${at}`);
    lines.push(...page.lines);
    if (page.end.epoch !== epoch || page.next.seq >= page.end.seq || page.next.seq <= at)
      return { epoch: page.end.epoch, end: page.end.seq, lines };
    at = page.next.seq;
  }
}

/** The number of an epoch's first line: it may go on behind lines of the one before. */
async function firstOf(epoch: string, end: number): Promise<number> {
  let [before, first] = [0, Math.max(1, end)];
  while (first - before > 1) {
    const middle = Math.floor((before + first) / 2);
    const [line] = (await ask(`limit=1&since=${epoch}:${middle - 1}`)).lines;
    if (line && line.epoch !== epoch) before = middle;
    else first = middle;
  }
  return first;
}

/** Asks for lines that may not be synced yet. */
async function ask(what: string): Promise<{ next: Place; end: Place; lines: Line[] }> {
  const response = await request(actionAddress(`get_ledger&newest=1&${what}`), {
    signal: AbortSignal.timeout(kMostWait),
  });
  const place = (name: string) => placeOf(response.headers.get(name));
  return { next: place('X-Ledger-Next'), end: place('X-Ledger-End'), lines: readLines(await response.text()) };
}
