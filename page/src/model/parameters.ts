/* The parameters behind the settings, as the package's manifest declares them: type, default, range, unit and help. */

import manifest from '../../../package/manifest.json';
import { readInteger } from './readers';

export interface Parameter {
  name: string;
  type: 'integer' | 'float' | 'bool' | 'string';
  default: string;
  /** Least and most, both allowed; null where the manifest names none. */
  range: readonly [number, number] | null;
  unit: string;
  /** What it does, in English. */
  help: string;
}

function readRange(text: string): Parameter['range'] {
  const [least, most] = text.split('..').map(Number);
  return text && Number.isFinite(least) && Number.isFinite(most) ? [least, most] : null;
}

const declared = new Map<string, Parameter>();
for (const { name, type, default: usual, range, unit, help } of manifest.parameters as Record<string, string>[]) {
  declared.set(name, { name, type: type as Parameter['type'], default: usual, range: readRange(range), unit, help });
}

/** Settings whose parameter is called otherwise. */
const otherNames: [RegExp, string][] = [
  [/^MaxDisappear$/, 'MaxDisappeared'],
  [/^Occupants$/, 'MinOccupantsForTrigger'],
  [/^IsOccResOn$/, 'OccupancyAutoResetActive'],
  [/^OccAutoResTime$/, 'OccupancyAutoResetTime'],
  [/^RepInt$/, 'PeriodTime'],
  [/^CamName$/, 'ThisDeviceCameraName'],
  [/^(Detection|Exclusion)(\d)_Active$/, '$1$2Active'],
  [/^Entrance(\d)_Active$/, 'Occupancy$1Active'],
  [/^FO(\d+)_Active$/, 'isFollower$1Active'],
  [/^FO(\d+)_Name$/, 'Follower$1CameraName'],
  [/^FO(\d+)_IP$/, 'Follower$1IP'],
  [/^FO(\d+)_Login$/, 'Follower$1login'],
  [/^FO(\d+)_Pwd$/, 'Follower$1PWD'],
];

function declaration(name: string): Parameter {
  const parameter = declared.get(name);
  if (!parameter) throw new Error(`the manifest declares no parameter "${name}"`);
  return parameter;
}

/** Milliseconds from one look of the camera to the next. */
export const kCycle = Number(declaration('MainLoopTime').default);

/** The parameter behind a setting, by the setting's measure; undefined for one that the page does not show. */
export function parameterOf(tag: string): Parameter | undefined {
  const [pattern, name] = otherNames.find(([one]) => one.test(tag)) ?? [/.*/s, tag];
  const parameter = declared.get(tag.replace(pattern, name));
  // The settings have seconds where the parameter has cycles, of which the camera puts whole ones into a second.
  if (tag !== 'MaxDisappear' || !parameter) return parameter;
  const seconds = (cycles: number) => cycles / Math.trunc(1000 / kCycle);
  const [least, most] = parameter.range!;
  return {
    ...parameter,
    type: 'float',
    default: String(seconds(Number(parameter.default))),
    range: [seconds(least), seconds(most)],
    unit: 'seconds',
  };
}

/** The parameter behind a setting that the page shows. */
export function shownParameter(tag: string): Parameter {
  const parameter = parameterOf(tag);
  if (!parameter) throw new Error(`the manifest declares no parameter for the setting "${tag}"`);
  return parameter;
}

/** Minutes from one report to the next, by the stored setting. A period of 0 would have the report fetched without end. */
export function reportMinutes(stored: string | undefined): number {
  const minutes = readInteger(stored) ?? 0;
  return minutes > 0 ? minutes : Number(shownParameter('RepInt').default);
}
