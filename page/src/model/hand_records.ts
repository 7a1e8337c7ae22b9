import { Block, blocksOf, kApart, match, Matched, Pass } from './accuracy';
import { CameraError, Trouble } from './api';
import { readCrossings } from './crossings';
import { Light, kLights } from './hand_count';
import { kDay, linesOf } from './ledger_lines';
import { Store } from './store';

/** A count by hand beside what the camera counted. */
export interface HandRecord extends Matched {
  /** The line's place in the ledger. */
  key: string;
  begin: Date;
  end: Date;
  user: string;
  remark: string;
  /** Null where whoever handed it in told none. */
  light: Light | null;
  /** Whether the camera counts otherwise since, or was started anew meanwhile: then it says nothing of how it counts now. */
  isVoid: boolean;
  blocks: Block[];
}

/** So far back the ledger is looked through. */
export const kDaysBack = 14;
/** What is written each minute, too: behind it there is nothing more to read. */
const kCrossings = 'crossing,watched';
/** Settings on which it does not depend what is counted at the entrances. */
const kOfNoCount =
  /^(Follower|isFollower|ThisDevice|(Detection|Anon)OverlaysOn$|Selected|PeriodTime|OccupancyAutoReset|Min|VerboseLog|AoiLogic|ResetBy|Detection\dThresh|IsSnap)/;

interface Line {
  kind?: unknown;
  t?: unknown;
  user?: unknown;
  begin?: unknown;
  end?: unknown;
  remark?: unknown;
  light?: unknown;
  changed?: unknown;
  taps?: unknown;
}

const textOf = (value: unknown) => (typeof value === 'string' ? value : '');
const timeOf = (value: unknown) => Date.parse(textOf(value));

function tapsOf(value: unknown): Pass[] {
  const taps = Array.isArray(value) ? (value as { t?: unknown; entrance?: unknown; direction?: unknown }[]) : [];
  return taps.flatMap(({ t, entrance, direction }): Pass[] => {
    const time = timeOf(t);
    if (Number.isNaN(time) || typeof entrance !== 'number') return [];
    return [{ time, entrance, by: direction === 'in' ? 1 : -1 }];
  });
}

/** Whether it is counted otherwise behind this line than before it. */
const changesCounting = ({ kind, changed }: Line) =>
  kind === 'settings' && Array.isArray(changed) && changed.some((name) => !kOfNoCount.test(String(name)));

/** Every count by hand of the last days, the newest first. Throws CameraError. */
export async function askRecords(): Promise<HandRecord[]> {
  const lines = await linesOf('hand_count,settings,start', Date.now() - kDaysBack * kDay);
  const values = lines.map(({ value }) => value as Line);
  const records: HandRecord[] = [];
  for (const { value, epoch, seq } of lines) {
    const line = value as Line;
    const [begin, end] = [timeOf(line.begin), timeOf(line.end)];
    if (line.kind !== 'hand_count' || Number.isNaN(begin) || !(end > begin)) continue;
    const crossings = readCrossings(await linesOf(kCrossings, begin - kApart, end + kApart)).flatMap(
      ({ time, entrance, by }): Pass[] => (time ? [{ time: time.getTime(), entrance, by }] : []),
    );
    const matched = match(tapsOf(line.taps), crossings, begin, end);
    const isVoid = values.some((one) => {
      const time = timeOf(one.t);
      return time >= begin && (changesCounting(one) || (one.kind === 'start' && time <= end));
    });
    records.push({
      ...matched,
      key: `${epoch}:${seq}`,
      begin: new Date(begin),
      end: new Date(end),
      user: textOf(line.user),
      remark: textOf(line.remark),
      light: kLights.find((light) => light === line.light) ?? null,
      isVoid,
      blocks: blocksOf(matched, begin, end),
    });
  }
  return records.reverse();
}

/** The counts by hand that the camera keeps. */
export class HandRecords extends Store {
  /** Null before they are known. */
  records: HandRecord[] | null = null;
  trouble: Trouble | null = null;
  isLoading = false;

  async load(): Promise<void> {
    if (this.isLoading) return;
    this.isLoading = true;
    this.changed();
    try {
      this.records = await askRecords();
      this.trouble = null;
    } catch (error) {
      this.trouble = error instanceof CameraError ? error.trouble : 'refused';
    }
    this.isLoading = false;
    this.changed();
  }
}
