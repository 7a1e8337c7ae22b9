import { ask, CameraError, Trouble } from './api';
import { Panel, readInteger, readPanel } from './readers';
import { Store } from './store';

export type Connection = 'asking' | 'ok' | Trouble;

/** Somebody came in (more than 0) or went out, as the page saw the count change. */
export interface Passage {
  time: Date;
  by: number;
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
  private skipPassage = false;
  private timer: ReturnType<typeof setTimeout> | undefined;

  start(): void {
    document.addEventListener('visibilitychange', () => {
      if (!document.hidden) this.beat();
    });
    this.beat();
  }

  /** The next change of the count is a reset and nobody's passage. */
  expectReset(): void {
    this.skipPassage = true;
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
      this.occupancy = null;
    }
    this.changed();
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.beat(), this.connection === 'ok' ? kInterval : kIntervalInTrouble);
  }

  private async askAll(): Promise<void> {
    const [panel, occupancy, building, crowd2, crowd3, cycleTime] = await Promise.all([
      ask('get_data_panel_info'),
      ask('get_occupancy_count'),
      ask('get_total_crowd'),
      ask('get_crowd_2'),
      ask('get_crowd_3'),
      ask('get_execution_time'),
    ]);
    this.panel = readPanel(panel);
    this.note(readInteger(occupancy));
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

  private note(occupancy: number | null): void {
    const by = occupancy !== null && this.occupancy !== null ? occupancy - this.occupancy : 0;
    this.occupancy = occupancy;
    if (by === 0) return;
    if (this.skipPassage && occupancy === 0) {
      this.skipPassage = false;
      return;
    }
    this.passages = [{ time: new Date(), by }, ...this.passages].slice(0, kPassagesKept);
    if (by > 0) this.cameIn += by;
    else this.wentOut -= by;
  }
}

/** Whether a camera with this status has answered its leader. */
export function answers(status: string): boolean {
  return status !== 'No connection error' && status !== 'Unknown default status' && status !== '';
}
