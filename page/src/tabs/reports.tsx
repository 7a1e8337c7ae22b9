import { useEffect, useId, useMemo, useState } from 'preact/hooks';
import { dateOf, dateTimeOf, momentOf } from '../dates';
import { actionAddress } from '../model/api';
import { Answer, answer, Measure, measures, Report, Split, startOf } from '../model/report';
import { Answers } from '../parts/answers';
import { Button } from '../parts/button';
import { Chart, Line, Window } from '../parts/chart';
import { reports, usePeriod, useReports } from '../stores';
import { texts } from '../texts';

const t = texts.reports;
const kHour = 3600;
const kDay = 24 * kHour;

type Span = 'day' | 'week' | 'month' | 'all';
const spans: Span[] = ['day', 'week', 'month', 'all'];
const splits: Split[] = ['place', 'objectClass', 'camera', 'none'];
/** How much is put together to one point. */
const buckets: Record<Span, number> = { day: 0, week: kHour, month: kDay, all: kDay };

export function ReportsTab() {
  const { report, trouble, loading, read } = useReports();
  const minutes = usePeriod();
  useEffect(() => reports.load(0.25), []);
  return (
    <>
      <Answers />
      <div class="actions">
        <Button disabled={loading} onClick={() => reports.load()}>
          {t.again}
        </Button>
        <a class="button" href={actionAddress('get_occupancy_csv')} download="senvo-report.csv">
          {t.csv}
        </a>
        <a class="button" href={actionAddress('get_occupancy_html')} target="_blank" rel="noopener">
          {t.html}
        </a>
        <span class="muted" role="status" data-testid="report-state">
          {loading ? t.loading : report && read ? t.rows(report.times.length, momentOf(read, new Date(), 'short')) : ''}
        </span>
      </div>
      {trouble && (
        <p class="banner bad" role="alert">
          {t.failed + texts.trouble[trouble]}
        </p>
      )}
      {report && report.skipped > 0 && <p class="banner warn">{t.skipped(report.skipped)}</p>}
      {report &&
        (report.times.length > 0 ? <Figures report={report} period={minutes * 60} /> : <p class="card">{t.empty}</p>)}
    </>
  );
}

/** The days from the one of a time back, as [from, to). */
function days(span: Span, last: number, first: number, back: number): [number, number] {
  if (span === 'all') return [first, Infinity];
  const tomorrow = (Math.floor(last / kDay) + 1) * kDay;
  if (span === 'month') {
    const day = new Date(last * 1000);
    const month = (offset: number) => Date.UTC(day.getUTCFullYear(), day.getUTCMonth() + offset, 1) / 1000;
    return [month(-back), month(1 - back)];
  }
  const length = span === 'week' ? 7 * kDay : kDay;
  return [tomorrow - (back + 1) * length, tomorrow - back * length];
}

const unique = (values: string[]) => [...new Set(values)].sort();

function Figures({ report, period }: { report: Report; period: number }) {
  const [measure, setMeasure] = useState<Measure>('occupancy');
  const [split, setSplit] = useState<Split>('camera');
  const [span, setSpan] = useState<Span>('day');
  const [back, setBack] = useState(0);
  const [camera, setCamera] = useState<string | null>(null);
  const [objectClass, setObjectClass] = useState<string | null>(null);
  const [window, setWindow] = useState<Window>(null);
  const { times, columns } = report;
  const [first, last] = [startOf(times, 0, period), startOf(times, times.length - 1, period)];
  const [from, to] = days(span, last, first, back);
  const cameras = useMemo(() => unique(columns.map((column) => column.camera)), [columns]);
  const classes = useMemo(() => unique(columns.map((column) => column.objectClass)), [columns]);
  // What is shown changes with every choice, but not with every stroke of the zoom.
  const shown = useMemo(
    () => answer(report, { measure, split, camera, objectClass, from, to, bucket: buckets[span], period }),
    [report, measure, split, camera, objectClass, from, to, span, period],
  );
  const lines = useMemo(() => {
    const areSeveral = new Set(shown.series.map((one) => one.camera)).size > 1;
    return shown.series.map(({ key, camera, values }): Line => {
      const label = labelOf(key, split, measure);
      return { label: areSeveral && camera !== null ? t.placeOf(camera || t.unnamed, label) : label, values };
    });
  }, [shown, split, measure]);
  // A report that goes on leaves the zoom as it is.
  useEffect(() => setWindow(null), [measure, split, camera, objectClass, from, to, span]);
  const [firstDay, lastDay] = [dateOf(Math.max(from, first)), dateOf(Math.min(to, last + 1) - 1)];
  const when = firstDay === lastDay ? firstDay : `${firstDay} – ${lastDay}`;
  const adds = measure === 'entries' || measure === 'exits';
  const bucket = buckets[span];

  return (
    <>
      <div class="card filters" role="group" aria-label={t.title}>
        <Pick
          label={t.measure}
          value={measure}
          options={measures.map((one) => [one, t.measures[one]])}
          onPick={setMeasure}
        />
        <Pick label={t.split} value={split} options={splits.map((one) => [one, t.splits[one]])} onPick={setSplit} />
        <Pick
          label={t.span}
          value={span}
          options={spans.map((one) => [one, t.spans[one]])}
          onPick={(one) => {
            setSpan(one);
            setBack(0);
          }}
        />
        <Pick
          label={t.camera}
          value={camera}
          options={[[null, t.allCameras], ...cameras.map((one): [string, string] => [one, one || t.unnamed])]}
          onPick={setCamera}
        />
        <Pick
          label={t.objectClass}
          value={objectClass}
          options={[[null, t.allClasses], ...classes.map((one): [string, string] => [one, t.classes[one] ?? one])]}
          onPick={setObjectClass}
        />
      </div>
      <section class="card">
        <div class="card-head">
          <h2 data-testid="shown">
            {t.measures[measure]}, {when}
          </h2>
          <div class="actions">
            <Button disabled={from <= first} onClick={() => setBack(back + 1)}>
              {t.earlier}
            </Button>
            <Button disabled={back === 0} onClick={() => setBack(back - 1)}>
              {t.later}
            </Button>
            <Button disabled={shown.times.length < 3} onClick={() => setWindow(zoomed(shown, window, 0.5))}>
              {t.zoomIn}
            </Button>
            <Button disabled={!window} onClick={() => setWindow(zoomed(shown, window, 2))}>
              {t.zoomOut}
            </Button>
          </div>
        </div>
        <p class="help">
          {t.perBucket[bucket]}
          {bucket > 0 && `: ${adds ? t.sum : t.highest}`}. <span class="keys">{t.zoomHelp}</span>
          <span class="touch">{t.zoomTouchHelp}</span>
        </p>
        {shown.times.length > 0 && lines.length > 0 ? (
          <Chart
            label={t.chart(t.measures[measure], when)}
            times={shown.times}
            lines={lines}
            areEnds={bucket === 0}
            bars={adds && lines.length === 1}
            window={window}
            onWindow={setWindow}
          />
        ) : (
          <p class="empty">{t.nothing}</p>
        )}
      </section>
      <Table
        key={`${measure} ${split} ${span} ${back}`}
        times={shown.times}
        lines={lines}
        window={window}
        bucket={bucket}
      />
    </>
  );
}

function Pick<T extends string | null>({
  label,
  value,
  options,
  onPick,
}: {
  label: string;
  value: T;
  options: [T, string][];
  onPick: (value: T) => void;
}) {
  const id = useId();
  return (
    <div class="pick">
      <label for={id}>{label}</label>
      <select
        id={id}
        value={options.findIndex(([key]) => key === value)}
        onChange={(event) => onPick(options[Number(event.currentTarget.value)][0])}
      >
        {options.map(([key, text], i) => (
          <option key={key} value={i}>
            {text}
          </option>
        ))}
      </select>
    </div>
  );
}

function labelOf(key: string, split: Split, measure: Measure): string {
  if (split === 'camera') return key || t.unnamed;
  if (split === 'objectClass') return t.classes[key] ?? key;
  if (split === 'none' || key === '0') return t.total;
  return measure === 'entries' || measure === 'exits' ? texts.live.entrance(Number(key)) : texts.live.area(Number(key));
}

/** The window made longer or shorter around its middle; null when it holds everything. */
function zoomed({ times }: Answer, window: Window, factor: number): Window {
  const [first, last] = [times[0], times[times.length - 1]];
  const [from, to] = window ?? [first, last];
  const half = ((to - from) / 2) * factor;
  const middle = (from + to) / 2;
  const wider: [number, number] = [Math.max(first, middle - half), Math.min(last, middle + half)];
  return wider[0] <= first && wider[1] >= last ? null : wider;
}

const kRowsPerPage = 50;

function Table({ times, lines, window, bucket }: { times: number[]; lines: Line[]; window: Window; bucket: number }) {
  const [page, setPage] = useState(0);
  const rows = useMemo(() => {
    const inside = times.map((_, i) => i).filter((i) => !window || (times[i] >= window[0] && times[i] <= window[1]));
    return inside.reverse();
  }, [times, window]);
  useEffect(() => setPage(0), [window]);
  const first = page * kRowsPerPage;
  const shown = rows.slice(first, first + kRowsPerPage);
  if (rows.length === 0) return null;
  return (
    <section class="card">
      <div class="card-head">
        <h2>{t.table}</h2>
        <div class="actions">
          <span class="muted" role="status">
            {t.page(first + 1, first + shown.length, rows.length)}
          </span>
          <Button disabled={page === 0} onClick={() => setPage(page - 1)}>
            {t.newer}
          </Button>
          <Button disabled={first + kRowsPerPage >= rows.length} onClick={() => setPage(page + 1)}>
            {t.older}
          </Button>
        </div>
      </div>
      <div class="scroll" tabIndex={0} role="region" aria-label={t.table}>
        <table data-testid="report">
          <thead>
            <tr>
              <th scope="col">{bucket === 0 ? t.until : t.from}</th>
              {lines.map((line, i) => (
                <th key={i} scope="col" class="number">
                  {line.label}
                </th>
              ))}
            </tr>
          </thead>
          <tbody>
            {shown.map((row) => (
              <tr key={row}>
                <th scope="row">{bucket === kDay ? dateOf(times[row]) : dateTimeOf(times[row])}</th>
                {lines.map((line, i) => (
                  <td key={i} class="number">
                    {line.values[row]}
                  </td>
                ))}
              </tr>
            ))}
          </tbody>
        </table>
      </div>
    </section>
  );
}
