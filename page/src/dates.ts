/* Dates and times as the browser's locale writes them. In the reports the camera's local time stands as if it were UTC. */

const format = (options: Intl.DateTimeFormatOptions) => {
  const shown = new Intl.DateTimeFormat(undefined, { timeZone: 'UTC', ...options });
  return (seconds: number) => shown.format(seconds * 1000);
};

/** A moment by the clock of this device; with its date where that is another than today's. */
export function momentOf(moment: Date, now: Date, timeStyle: 'short' | 'medium'): string {
  const isToday = moment.toDateString() === now.toDateString();
  return moment.toLocaleString([], isToday ? { timeStyle } : { dateStyle: 'medium', timeStyle });
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
