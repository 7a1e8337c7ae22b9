/*
 * The settings document: what the camera holds, what was changed here and not saved yet, and the way back. The document
 * goes back whole; an element that was not changed here goes back as it came.
 */

import { isCoordinate } from './fields';
import { Point, Size } from './geometry';
import { kFollowers, readElements, readInteger } from './readers';
import { kCycle, parameterOf } from './parameters';
import { problemOf } from './rules';
import { texts } from '../texts';

export type Values = ReadonlyMap<string, string>;

export type AreaKind = 'Detection' | 'Exclusion' | 'Entrance';
export const areaKinds: AreaKind[] = ['Detection', 'Exclusion', 'Entrance'];
export const kAreas = 3;
export const kLeastCorners = 3;
export const kMostCorners = 8;

/** The setting that says how many corners the areas of a kind have; exclusions always have four. */
export const cornersTag = {
  Detection: 'DetectionControlPoints',
  Exclusion: null,
  Entrance: 'EntrancesControlPoints',
} as const;

const kDownloadOnly = 'CamsResAsCsv';

/** The values of a downloaded document; null when it is none. */
export function readSettings(document: string): Values | null {
  const values = readElements(document);
  return values.has('CamName') && values.has('Detection1_0') ? values : null;
}

/** The body that takes the settings back. */
export function uploadBody(values: Values): string {
  let body = '';
  for (const [tag, value] of values) {
    if (tag !== kDownloadOnly) body += `<${tag}>${value}</${tag}>`;
  }
  return `<root>${body}</root>`;
}

/** The settings whose values differ; what only a download has does not count. */
export function differences(one: Values, other: Values): string[] {
  const tags = new Set([...one.keys(), ...other.keys()]);
  return [...tags].filter((tag) => tag !== kDownloadOnly && one.get(tag) !== other.get(tag));
}

/** Whether the camera may write a value that it was sent in this way: numbers and corners come back in its own form. */
export function isWritten(tag: string, sent: string, back: string, size: Size): boolean {
  if (sent === back) return true;
  const coordinate = /^(?:Detection|Exclusion|Entrance)\d_(\d+)$/.exec(tag);
  if (coordinate) {
    const length = Number(coordinate[1]) % 2 === 0 ? size.width : size.height;
    return sent !== '' && back !== '' && pixelOf(sent, length) === pixelOf(back, length);
  }
  const range = parameterOf(tag)?.range;
  if (!range || sent === '' || back === '') return false;
  // Seconds are cut to whole cycles, scores to six digits.
  const step = tag === 'MaxDisappear' ? kCycle / 1000 : 1e-5;
  return Math.abs(Number(sent) - Number(back)) < step;
}

/** The picture size at which people are hidden; "" where they are hidden at none. */
export function hidingSize(values: Values, analysis: Size): string {
  const isHiding = values.get('AnonOverlaysOn') === '1' && whyNobodyIsHidden(values, analysis) === null;
  return isHiding ? (values.get('SelectedAnonOverlay') ?? '') : '';
}

/** The settings of which the camera holds something else than it was sent. */
export function altered(sent: Values, back: Values, size: Size): string[] {
  return [...sent]
    .filter(([tag, value]) => tag !== kDownloadOnly && !isWritten(tag, value, back.get(tag) ?? '', size))
    .map(([tag]) => tag);
}

/**
 * The edits with the whole outline of every area of which they change some: its corners mean nothing without one another.
 * Where the camera's latest settings have another number of corners, which is one for all areas of a kind, these are
 * outlines of the whole kind.
 */
export function withWholeOutlines(loaded: Values, edits: Values, latest: Values): Values {
  const seen = withEdits(loaded, edits);
  const whole = new Map(edits);
  for (const kind of areaKinds) {
    const count = cornersTag[kind];
    const outlines = Array.from({ length: kAreas }, (_, i) =>
      [...seen.keys()].filter((tag) => isCoordinate(tag) && tag.startsWith(`${kind}${i + 1}_`)),
    );
    const isEdited = (tags: string[]) => tags.some((tag) => edits.has(tag));
    if (count && seen.get(count) !== latest.get(count) && isEdited([count, ...outlines.flat()]))
      outlines.push([count, ...outlines.flat()]);
    for (const tags of outlines.filter(isEdited)) for (const tag of tags) whole.set(tag, seen.get(tag) ?? '');
  }
  return whole;
}

/** The edits that are left to make of settings that have changed underneath: what is now as it was wanted is none. */
export function rebased(loaded: Values, edits: Values): Values {
  return edited(loaded, new Map(), edits);
}

export function withEdits(values: Values, edits: Values): Values {
  return new Map([...values, ...edits]);
}

/** The edits with changes made; what has become as it was loaded is no edit any more. */
export function edited(loaded: Values, edits: Values, changes: Iterable<[string, string]>): Values {
  const result = new Map(edits);
  for (const [tag, value] of changes) {
    if (loaded.get(tag) === value) result.delete(tag);
    else result.set(tag, value);
  }
  return result;
}

/** What keeps edits from being saved: each setting with the reason. Nobody is blamed for what was stored before. */
export function problems(loaded: Values, edits: Values): Map<string, string> {
  const found = new Map<string, string>();
  for (const [tag, value] of edits) {
    const problem = problemOf(tag, value);
    if (problem) found.set(tag, problem);
  }
  const values = withEdits(loaded, edits);
  for (let i = 1; i <= kFollowers; ++i) {
    const [active, address] = [`FO${i}_Active`, `FO${i}_IP`];
    const touched = edits.has(active) || edits.has(address);
    if (touched && values.get(active) === '1' && !values.get(address)) found.set(address, texts.cameras.needsAddress);
  }
  const twice = (tags: string[], meant: (value: string) => string, words: (other: string) => string) => {
    for (const tag of tags.filter((one) => edits.has(one) && !found.has(one))) {
      const mine = meant(values.get(tag) ?? '');
      const other = tags.find((one) => one !== tag && mine !== '' && meant(values.get(one) ?? '') === mine);
      if (other) found.set(tag, words(ownerOf(other)));
    }
  };
  const ofFollowers = (field: string) => Array.from({ length: kFollowers }, (_, i) => `FO${i + 1}_${field}`);
  twice(['CamName', ...ofFollowers('Name')], (name) => name, texts.rules.nameTwice);
  twice(ofFollowers('IP'), (address) => address.toLowerCase().replace(/:80$/, ''), texts.rules.addressTwice);
  return found;
}

const ownerOf = (tag: string) => (tag === 'CamName' ? texts.thisCamera : texts.follower(Number(/\d+/.exec(tag)![0])));

/** A fraction of the picture as the camera reads it: in single precision, cut to a whole pixel. */
function pixelOf(text: string | undefined, size: number): number {
  const fraction = Number.parseFloat(text ?? '');
  return Number.isFinite(fraction) ? Math.trunc(Math.fround(Math.fround(fraction) * size)) : 0;
}

/** A fraction well inside the pixel, so that no rounding on the way moves it to the next. */
function fractionOf(pixel: number, size: number): string {
  return ((pixel + (pixel < 0 ? -0.25 : 0.25)) / size).toFixed(6);
}

export function cornerCount(values: Values, kind: AreaKind): number {
  const tag = cornersTag[kind];
  const count = tag ? (readInteger(values.get(tag)) ?? 4) : 4;
  return Math.max(kLeastCorners, Math.min(kMostCorners, count));
}

export function polygonOf(values: Values, kind: AreaKind, number: number, size: Size): Point[] {
  return Array.from({ length: cornerCount(values, kind) }, (_, i) => ({
    x: pixelOf(values.get(`${kind}${number}_${2 * i}`), size.width),
    y: pixelOf(values.get(`${kind}${number}_${2 * i + 1}`), size.height),
  }));
}

/** The changes that draw an area so; a corner that stays on its pixel stays as it is written. */
export function polygonChanges(
  loaded: Values,
  kind: AreaKind,
  number: number,
  polygon: Point[],
  size: Size,
): [string, string][] {
  return polygon.flatMap((point, i) =>
    (
      [
        [2 * i, point.x, size.width],
        [2 * i + 1, point.y, size.height],
      ] as const
    ).map(([at, pixel, length]): [string, string] => {
      const tag = `${kind}${number}_${at}`;
      const before = loaded.get(tag);
      return [tag, before !== undefined && pixelOf(before, length) === pixel ? before : fractionOf(pixel, length)];
    }),
  );
}

/**
 * Why nobody is hidden although that is wanted; null when they are, or need not be. The camera draws on a stream of the
 * analysis' size, or else of the overlays', as if it had not been chosen for hiding.
 */
export function whyNobodyIsHidden(values: Values, analysis: Size): 'noStream' | 'analysis' | 'overlays' | null {
  const isOn = (tag: string) => values.get(tag) === '1';
  if (!isOn('AnonOverlaysOn')) return null;
  const stream = values.get('SelectedAnonOverlay') ?? '';
  if (!stream) return 'noStream';
  if (stream === `${analysis.width}x${analysis.height}`) return 'analysis';
  return isOn('DetectionOverlaysOn') && stream === values.get('SelectedDetectionOverlay') ? 'overlays' : null;
}
