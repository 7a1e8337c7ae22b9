/*
 * The one place where the page's language is chosen. Another language is one more file like texts/en.ts, and one more line
 * in `languages`.
 */

import { english } from './texts/en';

export type Texts = typeof english;

const languages: Record<string, Texts> = {
  en: english,
};

const kOtherwise = 'en';

/** The first of the wanted languages that there is: "de-AT" takes "de". */
export function chosenLanguage(wanted: readonly string[], known: readonly string[]): string {
  const plain = wanted.map((one) => one.toLowerCase().split('-')[0]);
  return plain.find((one) => known.includes(one)) ?? kOtherwise;
}

export const language = chosenLanguage(globalThis.navigator?.languages ?? [], Object.keys(languages));
export const texts = languages[language];
