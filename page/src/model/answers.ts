import { askCounted, CameraError, Trouble } from './api';
import { Store } from './store';
import { CountRow, Passed, readPassed } from './today';

/** A row of the camera's counts. Its times are those of the camera's zone: "2026-11-22T14:15:00+01:00". */
interface Row {
  begin: string;
  end: string;
  /** The share of it that was watched; null before the camera kept a ledger. */
  coverage: number | null;
  counts: CountRow[];
}

/** What passed in a time. */
export interface Span extends Passed {
  /** Where it begins: seconds since 1970 as if the camera's local time were UTC. */
  begin: number;
  coverage: number | null;
}

export interface Answers {
  /** The whole day before the camera's today. */
  yesterday: Span;
  /** The same weekday a week earlier; null where too little of it, or of yesterday, was watched. */
  weekBefore: Span | null;
  /** Yesterday's hour in which most came in; null where nobody did. */
  peak: Span | null;
  /** Through which entrance most came in yesterday; null where that was the only one. */
  busiest: { entrance: number; cameIn: number } | null;
  /** How many came in until this time of day, on average of the same weekday, and of how many of them; null of none. */
  usual: { cameIn: number; days: number } | null;
}

const kDay = 86_400;
const kWeek = 7 * kDay;
/** Of so many weeks the same weekday is looked at for what is usual. */
const kWeeks = 4;
/** Less than this share of a time watched, and its counts say little beside others. */
const kWatched = 0.9;

/** The camera's local time of a row as if it were UTC, in seconds. */
const localOf = (text: string) => Date.parse(`${text.slice(0, 19)}Z`) / 1000;
/** Such a time as a question names it: in the camera's zone. */
const textOf = (local: number) => new Date(local * 1000).toISOString().slice(0, 19);

function spanOf({ begin, coverage, counts }: Row): Span {
  const passed = readPassed(counts.map((count) => ({ ...count, entrance: 0 })));
  return { ...(passed.get(0) ?? { cameIn: 0, wentOut: 0 }), begin: localOf(begin), coverage };
}

/** Whether a time was watched long enough to compare it; before there was a ledger, where anybody was counted at all. */
export const isWatched = ({ coverage, cameIn, wentOut }: Span) =>
  coverage === null ? cameIn + wentOut > 0 : coverage >= kWatched;

const mostIn = <T extends { cameIn: number }>(among: T[]): T | null =>
  among.reduce<T | null>((most, one) => (one.cameIn > (most?.cameIn ?? 0) ? one : most), null);

async function rowsOf(question: string): Promise<Row[]> {
  return ((await askCounted(`get_counts&${question}`)) as { rows: Row[] }).rows;
}

const between = (from: number, to: number) => `from=${textOf(from)}&to=${textOf(to)}`;

/** What came and went in a time of the camera's. */
async function passedBetween(from: number, to: number): Promise<Span> {
  const spans = (await rowsOf(`${between(from, to)}&step=day&by=direction`)).map(spanOf);
  const sum = (value: (span: Span) => number) => spans.reduce((all, span) => all + value(span), 0);
  const isKnown = spans.every(({ coverage }) => coverage !== null);
  return {
    begin: from,
    cameIn: sum(({ cameIn }) => cameIn),
    wentOut: sum(({ wentOut }) => wentOut),
    coverage: isKnown ? Math.min(...spans.map(({ coverage }) => coverage!)) : null,
  };
}

/** Asks the camera for it all. Throws CameraError, or what an answer throws that makes no sense. */
export async function askAnswers(): Promise<Answers> {
  const [now] = (await rowsOf('step=quarter&by=direction')).slice(-1);
  const [until, today] = [localOf(now.end), Math.floor(localOf(now.begin) / kDay) * kDay];
  const yesterday = await passedBetween(today - kDay, today);
  const [weekBefore, hours, usual] = await Promise.all([
    passedBetween(today - kDay - kWeek, today - kWeek),
    rowsOf(`${between(today - kDay, today)}&step=hour&by=entrance,direction`),
    Promise.all(
      Array.from({ length: kWeeks }, (_, week) =>
        passedBetween(today - (week + 1) * kWeek, until - (week + 1) * kWeek),
      ),
    ),
  ]);
  const byEntrance = [...readPassed(hours.flatMap(({ counts }) => counts))];
  const watched = usual.filter(isWatched);
  const average = watched.reduce((sum, { cameIn }) => sum + cameIn, 0) / watched.length;
  return {
    yesterday,
    weekBefore: isWatched(yesterday) && isWatched(weekBefore) ? weekBefore : null,
    peak: mostIn(hours.map(spanOf)),
    busiest: byEntrance.length > 1 ? mostIn(byEntrance.map(([entrance, { cameIn }]) => ({ entrance, cameIn }))) : null,
    usual: watched.length > 0 ? { cameIn: Math.round(average), days: watched.length } : null,
  };
}

/** What people ask first. */
export class AnswerStore extends Store {
  /** Null before they are known. */
  answers: Answers | null = null;
  /** Why they could not be asked for anew. */
  trouble: Trouble | null = null;

  async load(): Promise<void> {
    try {
      this.answers = await askAnswers();
      this.trouble = null;
    } catch (error) {
      this.trouble = error instanceof CameraError ? error.trouble : 'refused';
    }
    this.changed();
  }
}
