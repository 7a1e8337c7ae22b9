/* What people call a setting, and where they find it. */

import { texts } from '../texts';
import { shownParameter, parameterOf } from './parameters';
import { TabName } from './tabs';

const tabsOf: [RegExp, TabName][] = [
  [
    /^(Detection|Exclusion|Entrance)(\d|sControlPoints)|^DetectionControlPoints$|^IsCameraInside$|^LocatorAtBottom$/,
    'areas',
  ],
  [/^(CamName|RepInt|FO\d+_.*)$/, 'cameras'],
  [
    /^(VerboseLog|DetectionOverlaysOn|AnonOverlaysOn|Selected(Detection|Anon)Overlay|IsOccResOn|OccAutoResTime)$/,
    'advanced',
  ],
];

/** The tab on which a setting is changed. */
export function tabOf(tag: string): TabName {
  return tabsOf.find(([pattern]) => pattern.test(tag))?.[1] ?? 'detection';
}

/** Settings that the page changes by drawing. */
export const isCoordinate = (tag: string) => /^(Detection|Exclusion|Entrance)\d_\d+$/.test(tag);

/** The label of a setting's field: "Counted in" of a follower. */
export function labelOf(tag: string): string {
  const { fields } = texts;
  const family = tag.replace(/^FO\d+_/, 'FO_').replace(/\d/g, '');
  if (isCoordinate(tag)) return fields.outline;
  return (fields.of as Record<string, string>)[family] ?? tag;
}

/** The same for a list of settings: "Follower 3: Counted in". */
export function nameOf(tag: string): string {
  const [, kind, number] = /^(Detection|Exclusion|Entrance|FO)(\d+)/.exec(tag) ?? [];
  if (!kind) return labelOf(tag);
  const whose =
    kind === 'FO'
      ? texts.follower(Number(number))
      : texts.areas.name[kind as keyof typeof texts.areas.name](Number(number));
  return `${whose}: ${labelOf(tag)}`;
}

/** Settings by their names, in their order: the corners of an outline have one together. */
export function byName(tags: Iterable<string>): Map<string, string[]> {
  const named = new Map<string, string[]>();
  for (const tag of tags) named.set(nameOf(tag), [...(named.get(nameOf(tag)) ?? []), tag]);
  return named;
}

/** 0.350000 is how the camera writes 0.35. */
export const plain = (value: string) => (/^\d+\.\d+$/.test(value) ? String(Number(value)) : value);

/** A setting's value in words. */
export function valueOf(tag: string, value: string): string {
  const type = parameterOf(tag)?.type;
  const choices = (texts.fields.choices as Record<string, string[]>)[tag];
  if (choices) return choices[Number(value)] ?? value;
  if (type === 'bool') return value === '1' ? texts.fields.on : texts.fields.off;
  return type === 'float' ? plain(value) : value;
}

/** A status, of which the camera tells in its own words, as people read it. */
export function statusOf(told: string, words: Record<string, string> = texts.status): string {
  return Object.hasOwn(words, told) ? words[told] : told;
}

/** One or two sentences on what a setting does: the manifest's, where the language has none of its own. */
export function helpOf(tag: string): string {
  const { name, help } = shownParameter(tag);
  return (texts.help as Record<string, string>)[name] ?? help;
}
