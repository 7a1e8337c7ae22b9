import { useEffect, useId, useState } from 'preact/hooks';
import { momentOf } from '../dates';
import { blocksOf, kMargin, Pass, Verdict, verdictOf } from '../model/accuracy';
import { kLeastMinutes, kLights, kMostMinutes, Light } from '../model/hand_count';
import { HandRecord, kDaysBack } from '../model/hand_records';
import { Button } from '../parts/button';
import { Confirm, Question } from '../parts/dialog';
import { handCount, handRecords, useHandCount, useHandRecords, useSettings } from '../stores';
import { texts } from '../texts';

const t = texts.count;
const entrances = [1, 2, 3];
const kSecond = 1000;
const kUsualMinutes = 15;

/** Counting by hand beside the camera, and how well the camera counts by that. While somebody counts, nothing else is shown. */
export function CountTab() {
  const { count, isOn } = useHandCount();
  if (!count) return <BetweenCounts />;
  return isOn ? <Counting /> : <HandIn />;
}

function BetweenCounts() {
  useEffect(() => void handRecords.load(), []);
  return (
    <>
      <Begin />
      <Results />
    </>
  );
}

function Begin() {
  const { isBusy, trouble } = useHandCount();
  const [minutes, setMinutes] = useState(String(kUsualMinutes));
  const [light, setLight] = useState<Light>('daylight');
  const [remark, setRemark] = useState('');
  const id = useId();
  const isRight = /^\d+$/.test(minutes) && Number(minutes) >= kLeastMinutes && Number(minutes) <= kMostMinutes;
  return (
    <section class="card no-print">
      <h2>{t.begin}</h2>
      <p>{t.intro}</p>
      <form
        class="grid spaced"
        onSubmit={(event) => {
          event.preventDefault();
          if (isRight) void handCount.begin(Number(minutes), light, remark.trim());
        }}
      >
        <div class="field">
          <label for={`${id}-minutes`}>{t.minutes}</label>
          <input
            id={`${id}-minutes`}
            inputMode="numeric"
            value={minutes}
            aria-invalid={!isRight}
            aria-describedby={`${id}-problem`}
            onInput={(event) => setMinutes(event.currentTarget.value.trim())}
          />
          <p class="problem" id={`${id}-problem`} aria-live="polite">
            {!isRight && texts.rules.wholeNumber(kLeastMinutes, kMostMinutes)}
          </p>
        </div>
        <div class="field">
          <label for={`${id}-light`}>{t.light}</label>
          <select id={`${id}-light`} value={light} onChange={(event) => setLight(event.currentTarget.value as Light)}>
            {kLights.map((one) => (
              <option key={one} value={one}>
                {t.lights[one]}
              </option>
            ))}
          </select>
        </div>
        <div class="field">
          <label for={`${id}-remark`}>{t.remark}</label>
          <input
            id={`${id}-remark`}
            value={remark}
            maxLength={200}
            onInput={(event) => setRemark(event.currentTarget.value)}
          />
        </div>
        <div class="actions">
          <button type="submit" class="primary" disabled={!isRight || isBusy}>
            {t.start}
          </button>
          <span role="status">{trouble && t.notBegun + texts.trouble[trouble]}</span>
        </div>
      </form>
    </section>
  );
}

/** Draws again each second. */
function useSeconds(): void {
  const [, tick] = useState(0);
  useEffect(() => {
    const timer = setInterval(() => tick((count) => count + 1), kSecond);
    return () => clearInterval(timer);
  }, []);
}

function Counting() {
  useSeconds();
  const { count, canFinish, isFull } = useHandCount();
  const { loaded } = useSettings();
  if (!count) return null;
  const { taps } = count;
  const left = Math.max(0, Math.ceil((count.end - handCount.now()) / kSecond));
  const shown = entrances.filter((number) => loaded?.get(`Entrance${number}_Active`) !== '0');
  const last = taps.at(-1);
  const tapped = (entrance: number, by: number) =>
    taps.filter((tap) => tap.entrance === entrance && tap.by === by).length;
  return (
    <section class="card counting" aria-label={t.counting}>
      <p class="left" role="timer">
        {t.left(`${Math.floor(left / 60)}:${String(left % 60).padStart(2, '0')}`)}
      </p>
      {shown.map((entrance) => (
        <div key={entrance} class="taps" role="group" aria-label={texts.live.entrance(entrance)}>
          <h2>{texts.live.entrance(entrance)}</h2>
          {([1, -1] as const).map((by) => (
            <button key={by} type="button" class="tap" onClick={() => handCount.tap(entrance, by)}>
              {by > 0 ? texts.live.cameIn : texts.live.wentOut}
              <span class="tapped">{tapped(entrance, by)}</span>
            </button>
          ))}
        </div>
      ))}
      <p role="status" class="muted">
        {isFull ? t.full : last ? t.tapped(taps.length, last.entrance, last.by) : t.noTap}
      </p>
      <div class="actions">
        <Button disabled={taps.length === 0} onClick={() => handCount.undo()}>
          {t.undo}
        </Button>
        <Button disabled={!canFinish} onClick={() => handCount.finish()}>
          {t.finish}
        </Button>
        <GiveUp disabled={false} />
      </div>
    </section>
  );
}

/** Throws a count away, when somebody says so twice. */
function GiveUp({ disabled }: { disabled: boolean }) {
  const [question, setQuestion] = useState<Question | null>(null);
  const ask = () =>
    setQuestion({ title: t.giveUpAsk, text: t.giveUpText, yes: t.giveUp, then: () => handCount.giveUp() });
  return (
    <>
      <Button disabled={disabled} onClick={ask}>
        {t.giveUp}
      </Button>
      {question && <Confirm question={question} onClose={() => setQuestion(null)} />}
    </>
  );
}

/** The time is over: the camera gets what was counted. */
function HandIn() {
  const { isBusy, trouble, count } = useHandCount();
  useEffect(() => void handCount.handIn(), []);
  return (
    <section class="card">
      <h2>{t.over}</h2>
      <p role="status">{trouble ? t.notHandedIn + texts.trouble[trouble] : t.handingIn(count?.taps.length ?? 0)}</p>
      {trouble && (
        <div class="actions">
          <Button disabled={isBusy} onClick={() => void handCount.handIn()}>
            {texts.settings.again}
          </Button>
          <GiveUp disabled={isBusy} />
        </div>
      )}
    </section>
  );
}

function Results() {
  const { records, trouble, isLoading } = useHandRecords();
  const valid = records?.filter(({ isVoid }) => !isVoid) ?? [];
  return (
    <>
      <section class="card" aria-busy={isLoading}>
        <div class="card-head">
          <h2>{t.results}</h2>
          <div class="actions no-print">
            <Button disabled={isLoading} onClick={() => void handRecords.load()}>
              {texts.reports.again}
            </Button>
            <Button disabled={!records?.length} onClick={() => print()}>
              {t.print}
            </Button>
          </div>
        </div>
        <p role="status" data-testid="verdict">
          {trouble
            ? t.failed + texts.trouble[trouble]
            : !records
              ? t.loading
              : records.length === 0
                ? t.none(kDaysBack)
                : valid.length === 0
                  ? t.allVoid
                  : t.verdict(verdictOf(valid.flatMap(({ blocks }) => blocks)))}
        </p>
        {valid.length > 0 && <Verdicts records={valid} />}
        <p class="help">{t.method}</p>
      </section>
      {records?.map((record) => (
        <Record key={record.key} record={record} />
      ))}
    </>
  );
}

/** Each entrance, and each light, by itself. */
function Verdicts({ records }: { records: HandRecord[] }) {
  const rows: [string, Verdict][] = [[t.all, verdictOf(records.flatMap(({ blocks }) => blocks))]];
  for (const entrance of entrances) {
    const isOf = (pass: Pass) => pass.entrance === entrance;
    const verdict = verdictOf(
      records.flatMap(({ byHand, missed, invented, begin, end }) =>
        blocksOf(
          { byHand: byHand.filter(isOf), missed: missed.filter(isOf), invented: invented.filter(isOf) },
          begin.getTime(),
          end.getTime(),
        ),
      ),
    );
    if (verdict.byHand > 0) rows.push([texts.live.entrance(entrance), verdict]);
  }
  for (const light of kLights) {
    const of = records.filter((record) => record.light === light);
    if (of.length > 0) rows.push([t.lights[light], verdictOf(of.flatMap(({ blocks }) => blocks))]);
  }
  return (
    <div class="scroll" tabIndex={0} role="region" aria-label={t.results}>
      <table data-testid="verdicts">
        <thead>
          <tr>
            <td />
            {[t.byHand, t.bias, t.interval].map((head) => (
              <th key={head} scope="col" class="number">
                {head}
              </th>
            ))}
            <th scope="col">{t.result}</th>
          </tr>
        </thead>
        <tbody>
          {rows.map(([name, verdict]) => (
            <tr key={name}>
              <th scope="row">{name}</th>
              <td class="number">{verdict.byHand}</td>
              <td class="number">{verdict.bias === null ? texts.unknown : t.percent(verdict.bias)}</td>
              <td class="number">
                {verdict.interval
                  ? t.fromTo(t.percent(verdict.interval[0]), t.percent(verdict.interval[1]))
                  : texts.unknown}
              </td>
              <td>{t.is[verdict.is](kMargin * 100)}</td>
            </tr>
          ))}
        </tbody>
      </table>
    </div>
  );
}

function Record({ record }: { record: HandRecord }) {
  const { begin, end, byHand, missed, invented, user, remark, light, isVoid } = record;
  const now = new Date();
  const sum = (by: number) => {
    const of = (passes: Pass[]) => passes.filter((pass) => pass.by === by).length;
    return [of(byHand), of(byHand) - of(missed) + of(invented)] as const;
  };
  const wrong = [
    ...missed.map((pass) => ({ ...pass, what: t.missed })),
    ...invented.map((pass) => ({ ...pass, what: t.invented })),
  ].sort((a, b) => a.time - b.time);
  return (
    <section class="card" data-testid="hand-count">
      <h3>{t.record(momentOf(begin, now, 'short'), momentOf(end, begin, 'short'))}</h3>
      <p class="muted">{[user, light && t.lights[light], remark].filter(Boolean).join(' · ')}</p>
      {isVoid && <p class="banner warn">{t.void}</p>}
      <table>
        <thead>
          <tr>
            <td />
            <th scope="col" class="number">
              {t.byHand}
            </th>
            <th scope="col" class="number">
              {t.byCamera}
            </th>
          </tr>
        </thead>
        <tbody>
          {[1, -1].map((by) => (
            <tr key={by}>
              <th scope="row">{by > 0 ? texts.live.cameIn : texts.live.wentOut}</th>
              {sum(by).map((count, i) => (
                <td key={i} class="number">
                  {count}
                </td>
              ))}
            </tr>
          ))}
        </tbody>
      </table>
      <p>{wrong.length === 0 ? t.allRight : t.wrong(missed.length, invented.length)}</p>
      <ul class="ticker">
        {wrong.map(({ time, entrance, by, what }, i) => (
          <li key={i}>
            <time>{momentOf(new Date(time), begin, 'medium')}</time> {what}: {t.passed(entrance, by)}
          </li>
        ))}
      </ul>
    </section>
  );
}
