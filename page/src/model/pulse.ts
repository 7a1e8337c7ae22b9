import { ask, askTogether, CameraError, signIn, Trouble } from './api';
import { Crossing, CrossingReader, Line, readCrossings } from './crossings';
import { Panel, readAges, readInteger, readPanel } from './readers';
import { Store } from './store';

export type Connection = 'asking' | 'ok' | Trouble;

export interface Passage extends Crossing {
  /** Rises from passage to passage. */
  number: number;
}

const kInterval = 1000;
const kIntervalInTrouble = 2000;
const kPassagesKept = 8;
/** Who was away for longer is shown nothing of before as if it were so now. */
const kLongAway = 5000;
/** On which the tabs of a browser tell one another that the camera lets them in. */
const kChannel = 'senvo-signed-in';

/** The camera's live figures, asked for every second while somebody looks. */
export class Pulse extends Store {
  connection: Connection = 'asking';
  panel: Panel | null = null;
  occupancy: number | null = null;
  /** Per detection area of this camera. */
  crowd: (number | null)[] = [null, null, null];
  buildingCrowd: number | null = null;
  cycleTime: number | null = null;
  passages: Passage[] = [];
  /** Counted since the page was opened, and when that was. */
  cameIn = 0;
  wentOut = 0;
  readonly since = new Date();
  /** The same for each entrance of this camera. */
  perEntrance = [1, 2, 3].map((entrance) => ({ entrance, cameIn: 0, wentOut: 0 }));
  /** Seconds since each follower last told this camera its counts, the first follower first; null when it has not. */
  ages: (number | null)[] = [];
  /** So many seconds the camera's clock is ahead of the one here; null where the camera does not tell. */
  clockAhead: number | null = null;
  /** Rises whenever the camera is there again. */
  generation = 0;
  private readonly crossings = new CrossingReader((lines) => {
    this.note(readCrossings(lines));
    this.tellLines(lines);
  });
  private timer: ReturnType<typeof setTimeout> | undefined;
  private beating: Promise<void> | null = null;
  /** The question for the login that is open. */
  private question = new AbortController();
  private hiddenAt = Infinity;
  private readonly otherTabs = new BroadcastChannel(kChannel);

  /** tellLines: is given what the ledger has more. */
  constructor(private readonly tellLines: (lines: Line[]) => void = () => {}) {
    super();
  }

  start(): void {
    document.addEventListener('visibilitychange', () => {
      if (document.hidden) this.hiddenAt = performance.now();
      else this.comeBack();
    });
    this.otherTabs.onmessage = () => {
      if (this.connection === 'signedOut') void this.beat();
    };
    void this.beat();
  }

  /**
   * Asks once more after the camera has refused the login: the browser asks its user for it by itself. A question of before
   * that is still open is given up.
   */
  async signIn(): Promise<void> {
    this.question.abort(new CameraError('signedOut', 0));
    await this.beating;
    await this.beat();
  }

  /** Who comes back to the page may have signed in elsewhere, or is asked for the login now. */
  private comeBack(): void {
    if (this.connection === 'ok' && performance.now() - this.hiddenAt > kLongAway) {
      this.connection = 'asking';
      this.forget();
      this.changed();
    }
    this.hiddenAt = Infinity;
    void this.beat();
  }

  private beat(): Promise<void> {
    this.beating ??= this.askOnce().finally(() => (this.beating = null));
    return this.beating;
  }

  private async askOnce(): Promise<void> {
    clearTimeout(this.timer);
    if (document.hidden) return;
    try {
      if (this.connection !== 'ok') {
        this.question = new AbortController();
        await signIn(this.question, () => this.saySignedOut());
      }
      await this.askAll();
      if (this.connection !== 'ok') {
        ++this.generation;
        this.otherTabs.postMessage('');
      }
      this.connection = 'ok';
    } catch (error) {
      this.connection = error instanceof CameraError ? error.trouble : 'unreachable';
      this.forget();
    }
    this.changed();
    // Signed out, every question would make the browser ask for the login anew: then only somebody's coming asks.
    if (this.connection !== 'signedOut') {
      this.timer = setTimeout(() => this.beat(), this.connection === 'ok' ? kInterval : kIntervalInTrouble);
    }
  }

  /** The browser is asking its user for the login. */
  private saySignedOut(): void {
    this.connection = 'signedOut';
    this.forget();
    this.changed();
  }

  /** What the camera said before is no longer shown as if it were so now. */
  private forget(): void {
    this.occupancy = this.buildingCrowd = this.cycleTime = null;
    this.crowd = [null, null, null];
    this.ages = [];
    this.clockAhead = null;
    this.panel = this.panel && {
      occupancy: null,
      limit: null,
      cameras: this.panel.cameras.map((camera) => ({ ...camera, status: '', crowd: null })),
    };
  }

  private async askAll(): Promise<void> {
    // One first: were the login refused, each would ask for it. The crowd of an area and the sum of all are of one moment.
    const asked = Date.now();
    const { parts: together, date } = await askTogether(['get_crowd_2', 'get_crowd_3', 'get_data_panel_info']);
    this.clockAhead = date === null ? null : aheadOf(date, asked, Date.now());
    const [occupancy, building, cycleTime, ages] = await Promise.all([
      ask('get_occupancy_count'),
      ask('get_total_crowd'),
      ask('get_execution_time'),
      ask('get_follower_ages'),
      this.crossings.goOn(),
    ]);
    this.panel = readPanel(together.pop()!);
    this.occupancy = readInteger(occupancy);
    this.buildingCrowd = readInteger(building);
    const [second, third] = together.length === 2 ? together.map(readInteger) : [null, null];
    this.crowd = crowdOfAreas(this.panel.cameras[0].crowd, second, third);
    this.cycleTime = readInteger(cycleTime);
    this.ages = readAges(ages);
  }

  private note(crossings: Crossing[]): void {
    for (const crossing of crossings) {
      const number = (this.passages[0]?.number ?? 0) + 1;
      this.passages = [{ ...crossing, number }, ...this.passages].slice(0, kPassagesKept);
      for (const sum of [this, this.perEntrance[crossing.entrance - 1]]) {
        if (crossing.by > 0) ++sum.cameIn;
        else ++sum.wentOut;
      }
    }
  }
}

/** How far a clock is ahead that told its time, in whole seconds, between two moments of this one. */
export function aheadOf(told: number, asked: number, answered: number): number {
  if (told > answered) return (told - answered) / 1000;
  return told + 999 < asked ? (told + 999 - asked) / 1000 : 0;
}

/** Area 1 is not asked for by itself, for the camera answers there with the building: it has what the others leave of all. */
function crowdOfAreas(all: number | null, second: number | null, third: number | null): (number | null)[] {
  const first = all === null || second === null || third === null ? null : all - second - third;
  return [first !== null && first >= 0 ? first : null, second, third];
}

/** What a leader tells of a follower before it has asked it. */
export const kNotAsked = 'Unknown default status';

/** Whether a camera with this status has answered its leader. */
export function answers(status: string): boolean {
  return status !== 'No connection error' && status !== kNotAsked && status !== '';
}
