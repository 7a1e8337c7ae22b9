/* Dates and times as the browser's locale writes them. In the reports the camera's local time stands as if it were UTC. */

const format = (options: Intl.DateTimeFormatOptions) => {
  const shown = new Intl.DateTimeFormat(undefined, { timeZone: 'UTC', ...options });
  return (seconds: number) => shown.format(seconds * 1000);
};

/** The zone in which the camera hangs. */
export interface Zone {
  /** Such as Europe/Berlin; empty where it has no name. */
  name: string;
  /** Seconds from UTC, as they are now. */
  offset: number;
}

/** Null until the camera has told: then times are those of this device. */
let there: Zone | null = null;

const isNamed = ({ name }: Zone) => {
  try {
    return name !== '' && Boolean(new Intl.DateTimeFormat(undefined, { timeZone: name }));
  } catch {
    return false; // a browser that does not know it
  }
};

/** Writes moments in the camera's zone from now on. */
export function setZone(zone: Zone | null): void {
  there = zone && { ...zone, name: isNamed(zone) ? zone.name : '' };
}

function written(moment: Date, options: Intl.DateTimeFormatOptions, locale?: string): string {
  if (!there) return moment.toLocaleString(locale ?? [], options);
  if (there.name) return moment.toLocaleString(locale ?? [], { ...options, timeZone: there.name });
  const shifted = new Date(moment.getTime() + there.offset * 1000);
  return shifted.toLocaleString(locale ?? [], { ...options, timeZone: 'UTC' });
}

/** The camera's date at a moment: 2026-11-22. */
export const isoDateOf = (moment: Date): string =>
  written(moment, { year: 'numeric', month: '2-digit', day: '2-digit' }, 'sv-SE');

/** A moment by the camera's local time; with its date where that is another than today's. */
export function momentOf(moment: Date, now: Date, timeStyle: 'short' | 'medium'): string {
  const isToday = isoDateOf(moment) === isoDateOf(now);
  return written(moment, isToday ? { timeStyle } : { dateStyle: 'medium', timeStyle });
}

export const dateOf = format({ dateStyle: 'medium' });
export const dateTimeOf = format({ dateStyle: 'medium', timeStyle: 'short' });
export const timeOf = format({ timeStyle: 'short' });
export const weekdayOf = format({ weekday: 'long' });
const dayOf = format({ day: 'numeric', month: 'short' });
const monthOf = format({ month: 'short', year: 'numeric' });

const kDay = 86_400;

/** Labels for the points of an axis, which are so many seconds apart: what does not change is said once. */
export function axisLabels(points: readonly number[], apart: number): string[] {
  return points.map((point, i) => {
    if (apart >= 28 * kDay) return monthOf(point);
    if (apart >= kDay) return dayOf(point);
    const isNewDay = i === 0 || Math.floor(point / kDay) !== Math.floor(points[i - 1] / kDay);
    return isNewDay ? `${timeOf(point)}\n${dayOf(point)}` : timeOf(point);
  });
}
