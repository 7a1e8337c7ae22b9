/*
 * What a setting may hold. The camera refuses a value that is no number and cuts a text at a "<", so this is the place.
 * Types and ranges come from the manifest; what a text may hold is said here.
 */

import { texts } from '../texts';
import { Parameter, parameterOf } from './parameters';

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
const flag: Rule = (value) => (value === '0' || value === '1' ? null : texts.rules.flag);

const ofTexts: [RegExp, Rule][] = [
  [/^(CamName|FO\d+_Name)$/, name],
  [/^FO\d+_IP$/, address],
];

function ruleOf(tag: string, { type, range, unit }: Parameter): Rule {
  if (type === 'bool') return flag;
  if (range) return number(range[0], range[1], type === 'integer');
  if (unit === 'hh:mm') return timeOfDay;
  return ofTexts.find(([pattern]) => pattern.test(tag))?.[1] ?? text;
}

/** Why a setting cannot hold the value, in words; null when it can. */
export function problemOf(tag: string, value: string): string | null {
  const parameter = parameterOf(tag);
  return parameter ? ruleOf(tag, parameter)(value) : null;
}
