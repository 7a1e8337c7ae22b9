import { actionAddress, CameraError, kMostWait, request } from './api';

/** Somebody who crossed an entrance of this camera. */
export interface Crossing {
  /** 1 to 3. */
  entrance: number;
  /** 1 for in, -1 for out. */
  by: 1 | -1;
  /** By the camera's clock; null where it did not know the time yet. */
  time: Date | null;
}

/** The crossings among a ledger's lines; what is none is passed over. */
export function readCrossings(lines: string): Crossing[] {
  return lines.split('\n').flatMap((line): Crossing[] => {
    let value: { kind?: unknown; entrance?: unknown; direction?: unknown; t?: unknown };
    try {
      value = JSON.parse(line);
    } catch {
      return [];
    }
    const { kind, entrance, direction, t } = value ?? {};
    if (kind !== 'crossing' || !(entrance === 1 || entrance === 2 || entrance === 3)) return [];
    if (direction !== 'in' && direction !== 'out') return [];
    const time = typeof t === 'string' ? new Date(t) : null;
    return [{ entrance, by: direction === 'in' ? 1 : -1, time: time && !Number.isNaN(time.getTime()) ? time : null }];
  });
}

/** A place in a ledger: of which life of it, and which line. */
interface Place {
  epoch: string;
  seq: number;
}

/** Throws CameraError when there is none, as before the camera has opened its ledger. */
function placeOf(text: string | null): Place {
  const found = /^(.*):(\d+)$/.exec(text ?? '');
  if (!found) throw new CameraError('restarting', 0);
  return { epoch: found[1], seq: Number(found[2]) };
}

/** Follows the camera's ledger: each crossing since the first question is told once, however long nobody asked. */
export class CrossingReader {
  private read: Place | null = null;

  constructor(private readonly tell: (crossings: Crossing[]) => void) {}

  /** Tells what has come since the last time. Throws CameraError; what came after the last answer is told the next time. */
  async goOn(): Promise<void> {
    if (!this.read) {
      this.read = (await ask('limit=1')).end;
      return;
    }
    for (;;) {
      const from: Place = this.read;
      const { next, end, lines } = await ask(`newest=1&kinds=crossing&since=${from.epoch}:${from.seq}`);
      if (end.epoch !== from.epoch || end.seq < from.seq) {
        // A ledger that was begun anew, or of which a power cut took the end: what of it was told before is not known.
        this.read = end;
        return;
      }
      this.read = next;
      this.tell(readCrossings(lines));
      if (next.seq >= end.seq || next.seq <= from.seq) return;
    }
  }
}

async function ask(what: string): Promise<{ next: Place; end: Place; lines: string }> {
  const response = await request(actionAddress(`get_ledger&${what}`), { signal: AbortSignal.timeout(kMostWait) });
  const place = (name: string) => placeOf(response.headers.get(name));
  return { next: place('X-Ledger-Next'), end: place('X-Ledger-End'), lines: await response.text() };
}
