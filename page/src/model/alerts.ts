import { kDay, linesOf } from './ledger_lines';
import { Line } from './crossings';
import { Store } from './store';

export const kAlertNames = ['breached', 'area1', 'area2', 'area3', 'occupancy'] as const;
export type AlertName = (typeof kAlertNames)[number];

/** An alert that was raised, by a rule or by hand. */
export interface Alert {
  name: AlertName;
  isByHand: boolean;
  since: Date;
  /** Null while it is raised. */
  until: Date | null;
}

/** By the camera's words for them. */
const names: Record<string, AlertName> = {
  'Ostrel Senvo Breached': 'breached',
  'Ostrel Senvo Area 1 Alert': 'area1',
  'Ostrel Senvo Area 2 Alert': 'area2',
  'Ostrel Senvo Area 3 Alert': 'area3',
  'Ostrel Senvo Occupancy Alert': 'occupancy',
};

/** What a ledger's lines tell of alerts, the newest first. A camera that is started anew has raised none. */
export function readAlerts(lines: readonly Line[]): Alert[] {
  const alerts: Alert[] = [];
  const raised = new Map<string, Alert>();
  for (const { value } of lines) {
    const { kind, t, alert, active, by_hand } = value as Record<string, unknown>;
    const time = new Date(typeof t === 'string' ? t : NaN);
    if (Number.isNaN(time.getTime())) continue;
    if (kind === 'start') {
      for (const one of raised.values()) one.until = time;
      raised.clear();
    }
    const name = typeof alert === 'string' && Object.hasOwn(names, alert) ? names[alert] : null;
    if (kind !== 'alert' || !name) continue;
    const key = `${name} ${by_hand === true}`;
    const known = raised.get(key);
    if (active === true && !known) {
      const one: Alert = { name, isByHand: by_hand === true, since: time, until: null };
      raised.set(key, one);
      alerts.unshift(one);
    } else if (active === false && known) {
      known.until = time;
      raised.delete(key);
    }
  }
  return alerts;
}

/** What made the count of who is inside begin anew, and when. */
export interface Beginning {
  at: Date;
  by: 'start' | 'reset' | 'corrected';
}

/** The last beginning of the count that a ledger's lines tell; null where they tell none. */
export function readBeginning(lines: readonly Line[]): Beginning | null {
  for (const { value } of [...lines].reverse()) {
    const { kind, t, occupancy } = value as { kind?: unknown; t?: unknown; occupancy?: unknown };
    const at = new Date(typeof t === 'string' ? t : NaN);
    // A start that goes on with who was inside begins nothing.
    if (kind === 'start' && typeof occupancy === 'number' && occupancy > 0) continue;
    if ((kind === 'start' || kind === 'reset' || kind === 'corrected') && !Number.isNaN(at.getTime()))
      return { at, by: kind };
  }
  return null;
}

const kKinds = ['alert', 'start', 'reset', 'corrected'];

/** The alerts of the last day, those that are raised, and since when who is inside is counted. */
export class Alerts extends Store {
  alerts: Alert[] = [];
  /** Null where it began before the last day. */
  beginning: Beginning | null = null;
  private lines: Line[] = [];

  get raised(): Alert[] {
    return this.alerts.filter(({ until }) => until === null);
  }

  /** Reads the last day, as whenever the camera is there again. */
  async load(): Promise<void> {
    const known = this.lines.length;
    try {
      const lines = await linesOf(kKinds.join(), Date.now() - kDay);
      // What came meanwhile may be newer than the answer.
      const meanwhile = this.lines.slice(known);
      this.lines = [];
      this.add([...lines, ...meanwhile]);
    } catch {
      // What comes from now on is told as it comes.
    }
  }

  /** Takes what the ledger has more. */
  add(lines: readonly Line[]): void {
    const known = new Set(this.lines.map(({ text }) => text));
    const fresh = lines.filter(({ text, value: { kind } }) => {
      const isNew = kKinds.includes(String(kind)) && !known.has(text);
      known.add(text);
      return isNew;
    });
    if (fresh.length === 0 && this.lines.length > 0) return;
    this.lines.push(...fresh);
    this.alerts = readAlerts(this.lines);
    this.beginning = readBeginning(this.lines);
    this.changed();
  }
}
