import { ask, CameraError, Trouble } from './api';
import { Panel, Passed, passagesBetween, readInteger, readPanel, readPassages } from './readers';
import { Store } from './store';

export type Connection = 'asking' | 'ok' | Trouble;

export interface Passage extends Passed {
  /** Rises from passage to passage. */
  number: number;
  time: Date;
}

const kInterval = 1000;
const kIntervalInTrouble = 2000;
const kPassagesKept = 8;

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
  /** Counted since the page was opened. */
  cameIn = 0;
  wentOut = 0;
  /** When each camera of the panel last had an answer, in milliseconds of performance.now(). */
  answered = new Map<number, number>();
  /** Rises whenever the camera is there again. */
  generation = 0;
  private counted: number[] | null = null;
  private timer: ReturnType<typeof setTimeout> | undefined;

  start(): void {
    document.addEventListener('visibilitychange', () => {
      if (!document.hidden) this.beat();
    });
    this.beat();
  }

  private async beat(): Promise<void> {
    clearTimeout(this.timer);
    // Asking while signed out makes the browser ask for a login each time.
    if (document.hidden || this.connection === 'signedOut') return;
    try {
      await this.askAll();
      if (this.connection !== 'ok') ++this.generation;
      this.connection = 'ok';
    } catch (error) {
      this.connection = error instanceof CameraError ? error.trouble : 'unreachable';
      this.forget();
    }
    this.changed();
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.beat(), this.connection === 'ok' ? kInterval : kIntervalInTrouble);
  }

  /** What the camera said before is no longer shown as if it were so now. */
  private forget(): void {
    this.occupancy = this.buildingCrowd = this.cycleTime = null;
    this.crowd = [null, null, null];
    this.panel = this.panel && {
      occupancy: null,
      cameras: this.panel.cameras.map((camera) => ({ ...camera, status: '', crowd: null })),
    };
  }

  private async askAll(): Promise<void> {
    const [panel, occupancy, passages, building, crowd2, crowd3, cycleTime] = await Promise.all([
      ask('get_data_panel_info'),
      ask('get_occupancy_count'),
      ask('get_passages'),
      ask('get_total_crowd'),
      ask('get_crowd_2'),
      ask('get_crowd_3'),
      ask('get_execution_time'),
    ]);
    this.panel = readPanel(panel);
    this.occupancy = readInteger(occupancy);
    this.note(readPassages(passages));
    this.buildingCrowd = readInteger(building);
    const [second, third] = [readInteger(crowd2), readInteger(crowd3)];
    // Area 1 is not asked for by itself: the camera answers there with the building.
    const all = this.panel.cameras[0].crowd;
    const first = all === null ? null : Math.max(0, all - (second ?? 0) - (third ?? 0));
    this.crowd = [first, second, third];
    this.cycleTime = readInteger(cycleTime);
    for (const camera of this.panel.cameras) {
      if (camera.crowd !== null && answers(camera.status)) this.answered.set(camera.index, performance.now());
    }
  }

  private note(counted: number[] | null): void {
    for (const passed of passagesBetween(this.counted, counted)) {
      const number = (this.passages[0]?.number ?? 0) + 1;
      this.passages = [{ ...passed, number, time: new Date() }, ...this.passages].slice(0, kPassagesKept);
      if (passed.by > 0) this.cameIn += passed.by;
      else this.wentOut -= passed.by;
    }
    this.counted = counted;
  }
}

/** Whether a camera with this status has answered its leader. */
export function answers(status: string): boolean {
  return status !== 'No connection error' && status !== 'Unknown default status' && status !== '';
}
