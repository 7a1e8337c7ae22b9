/* What a setting may hold. The camera refuses a value that is no number and cuts a text at a "<", so this is the place. */

import { texts } from '../texts/en';

type Rule = (value: string) => string | null;

function number(least: number, most: number, whole: boolean): Rule {
  return (value) => {
    const plain = whole ? /^\d{1,9}$/ : /^\d{1,9}(\.\d{1,9})?$/;
    if (!plain.test(value)) return whole ? texts.rules.wholeNumber(least, most) : texts.rules.number(least, most);
    return Number(value) < least || Number(value) > most ? texts.rules.range(least, most, value) : null;
  };
}

const text: Rule = (value) => {
  if (value.includes('<')) return texts.rules.noLess;
  // eslint-disable-next-line no-control-regex
  if (/[\u0000-\u001f\u007f\ufffd]/.test(value)) return texts.rules.noControl;
  return value.length > 200 ? texts.rules.tooLong(200) : null;
};

/** Names head the columns of the reports, which know no quoting; and an answer with "error" in it is taken for none. */
const name: Rule = (value) => {
  if (value.includes(',')) return texts.rules.noComma;
  if (value.includes('error')) return texts.rules.noErrorWord;
  return text(value);
};

const address: Rule = (value) => {
  if (value === '') return null;
  const found = /^([A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?|\[[0-9A-Fa-f:.]+\])(:(\d{1,5}))?$/.exec(value);
  return found && (!found[4] || (Number(found[4]) > 0 && Number(found[4]) < 65536)) ? null : texts.rules.address;
};

const timeOfDay: Rule = (value) => (/^([01]\d|2[0-3]):[0-5]\d$/.test(value) ? null : texts.rules.timeOfDay);

export const ranges = {
  Sensitivity: [0, 1],
  MaxDisappear: [0, 100],
  MinNumberOfPeopleForTrigger: [0, 100],
  Occupants: [0, 1_000_000],
  RepInt: [1, 1440],
  ThreshSeconds: [0, 86_400],
} as const;

const rules: [RegExp, Rule][] = [
  [/^Sensitivity$/, number(...ranges.Sensitivity, false)],
  [/^MaxDisappear$/, number(...ranges.MaxDisappear, false)],
  [/^MinNumberOfPeopleForTrigger$/, number(...ranges.MinNumberOfPeopleForTrigger, true)],
  [/^Occupants$/, number(...ranges.Occupants, true)],
  [/^RepInt$/, number(...ranges.RepInt, true)],
  [/^Detection[123]ThreshSeconds$/, number(...ranges.ThreshSeconds, true)],
  [/^OccAutoResTime$/, timeOfDay],
  [/^(CamName|FO\d+_Name)$/, name],
  [/^FO\d+_IP$/, address],
  [/^FO\d+_(Login|Pwd)$/, text],
];

/** Why a setting cannot hold the value, in words; null when it can. */
export function problemOf(tag: string, value: string): string | null {
  return rules.find(([pattern]) => pattern.test(tag))?.[1](value) ?? null;
}
