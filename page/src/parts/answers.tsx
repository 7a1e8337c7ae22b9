import { dateOf, momentOf, timeOf, weekdayOf } from '../dates';
import { isWatched, Answers as Known, Span } from '../model/answers';
import { Passed } from '../model/today';
import { useStore } from '../model/store';
import { cameraTime, useAnswers, usePulse, useToday } from '../stores';
import { texts } from '../texts';

const t = texts.answers;
const kHour = 3600;

interface AnswerProps {
  label: string;
  value: string;
  /** What it is compared with, or found out of. */
  beside?: string;
  testid: string;
}

function Answer({ label, value, beside, testid }: AnswerProps) {
  return (
    <div class="figure" data-testid={testid}>
      <dt>{label}</dt>
      <dd>{value}</dd>
      {beside && <dd class="without">{beside}</dd>}
    </div>
  );
}

/** Yesterday against the same weekday before; how much of it was watched where that is too little. */
function comparison({ yesterday, weekBefore }: Known): string {
  const weekday = weekdayOf(yesterday.begin);
  if (weekBefore)
    return weekBefore.cameIn === 0
      ? t.thanNobody(weekday)
      : t.than(Math.round((yesterday.cameIn / weekBefore.cameIn - 1) * 100), weekday, weekBefore.cameIn);
  const { coverage } = yesterday;
  return coverage !== null && !isWatched(yesterday) ? t.watched(Math.floor(coverage * 100)) : t.noUsual;
}

const hourOf = ({ begin }: Span) => `${timeOf(begin)} – ${timeOf(begin + kHour)}`;

const entriesOf = (counts: ReadonlyMap<number, Passed>) =>
  [...counts.values()].reduce((sum, { cameIn }) => sum + cameIn, 0);

/** The camera's clock as it is now. */
function CameraClock() {
  const { clockAhead } = usePulse();
  const { zone } = useStore(cameraTime);
  if (clockAhead === null || !zone) return null;
  const now = new Date(Date.now() + clockAhead * 1000);
  return <span data-testid="camera-clock">{t.clock(momentOf(now, now, 'short'), zone.name)}</span>;
}

/** What people ask first: how busy it is and was, and against what. */
export function Answers() {
  const { counts } = useToday();
  const { answers: known, trouble } = useAnswers();
  return (
    <section class="card answers" aria-label={t.title}>
      <h2>{t.title}</h2>
      {known ? (
        <dl>
          <Answer
            label={t.today}
            value={counts ? String(entriesOf(counts)) : texts.unknown}
            beside={
              known.usual
                ? t.usual(known.usual.cameIn, weekdayOf(known.yesterday.begin + 24 * kHour), known.usual.days)
                : t.noUsual
            }
            testid="answer-today"
          />
          <Answer
            label={`${t.yesterday}, ${dateOf(known.yesterday.begin)}`}
            value={String(known.yesterday.cameIn)}
            beside={comparison(known)}
            testid="answer-yesterday"
          />
          {known.peak && (
            <Answer
              label={t.peak}
              value={hourOf(known.peak)}
              beside={t.peakIn(known.peak.cameIn)}
              testid="answer-peak"
            />
          )}
          {known.busiest && (
            <Answer
              label={t.busiest}
              value={texts.live.entrance(known.busiest.entrance)}
              beside={t.peakIn(known.busiest.cameIn)}
              testid="answer-busiest"
            />
          )}
        </dl>
      ) : (
        <p class="muted">{trouble ? t.failed + texts.trouble[trouble] : t.asking}</p>
      )}
      <p class="help">
        {t.ofThisCamera} <CameraClock />
      </p>
    </section>
  );
}
