import { useEffect, useMemo, useState } from 'preact/hooks';
import { ask, CameraError } from '../model/api';
import { readInteger } from '../model/readers';
import { answer, Measure, Report } from '../model/report';
import { Confirm, Question } from '../parts/dialog';
import { Picture } from '../parts/picture';
import { StatusBadge } from '../parts/status';
import { answers } from '../model/pulse';
import { pulse, reports, usePulse, useReports, useSettings } from '../stores';
import { texts } from '../texts/en';

const t = texts.live;
const number = (value: number | null) => (value === null ? texts.unknown : String(value));

export function LiveTab() {
  return (
    <div class="live">
      <div class="main column">
        <LivePicture />
        <Cameras />
      </div>
      <div class="side column">
        <Figures />
        <Passages />
      </div>
      <Resets />
      <Alerts />
    </div>
  );
}

function LivePicture() {
  const { resolutions, size, values } = useSettings();
  const [chosen, setChosen] = useState<string | null>(null);
  // Overlays are drawn on the chosen stream and on the one that is analysed.
  const drawn = values.get('DetectionOverlaysOn') === '1' ? values.get('SelectedDetectionOverlay')! : '';
  const usual = [drawn, `${size.width}x${size.height}`].find((entry) => resolutions.includes(entry)) ?? '';
  const resolution = chosen ?? usual;
  return (
    <section class="card picture-card" aria-label={texts.picture.label}>
      <Picture resolution={resolution} size={size} />
      {resolutions.length > 0 && (
        <div class="inline">
          <label for="resolution">{texts.picture.stream}</label>
          <select id="resolution" value={resolution} onChange={(event) => setChosen(event.currentTarget.value)}>
            <option value="">{texts.picture.automatic}</option>
            {resolutions.map((entry) => (
              <option key={entry} value={entry}>{entry.replace('x', ' × ')}</option>
            ))}
          </select>
        </div>
      )}
    </section>
  );
}

function Figure({ label, value, off, testid }: { label: string; value: number | null; off?: boolean; testid: string }) {
  return (
    <div class={`figure ${off ? 'off' : ''}`}>
      <dt>{label}{off && <span class="muted"> ({t.areaOff})</span>}</dt>
      <dd data-testid={testid}>{number(value)}</dd>
    </div>
  );
}

function Figures() {
  const { occupancy, panel, crowd, buildingCrowd } = usePulse();
  const { values } = useSettings();
  return (
    <section class="card figures">
      <h2>{t.occupancy}</h2>
      <dl class="big">
        <Figure label={t.here} value={occupancy} testid="occupancy" />
        <Figure label={t.building} value={panel?.occupancy ?? null} testid="building" />
      </dl>
      <h2>{t.crowd}</h2>
      <dl>
        {crowd.map((count, i) => (
          <Figure key={i} label={t.area(i + 1)} value={count} off={values.get(`Detection${i + 1}_Active`) === '0'} testid={`crowd-${i + 1}`} />
        ))}
        <Figure label={t.building} value={buildingCrowd} testid="crowd-building" />
      </dl>
    </section>
  );
}

/** What went through each entrance since midnight, by the reports; null when there is none of today. */
function todayPerEntrance(report: Report | null, camera: string): Map<string, { entries: number; exits: number }> | null {
  if (!report || report.times.length === 0) return null;
  const midnight = Math.floor(report.times[report.times.length - 1] / 86_400) * 86_400;
  const now = new Date();
  const today = Date.UTC(now.getFullYear(), now.getMonth(), now.getDate()) / 1000;
  // The camera's clock may be a time zone away from this device's.
  if (midnight < today - 86_400) return null;
  const sums = new Map<string, { entries: number; exits: number }>();
  for (const measure of ['entries', 'exits'] as (Measure & ('entries' | 'exits'))[]) {
    const { series } = answer(report, { measure, split: 'place', camera, objectClass: '', from: midnight, to: Infinity, bucket: 0 });
    for (const { key, values } of series) {
      const sum = sums.get(key) ?? { entries: 0, exits: 0 };
      sum[measure] = values.reduce((all, value) => all + value, 0);
      sums.set(key, sum);
    }
  }
  return sums;
}

function Passages() {
  const { passages, cameIn, wentOut, panel, connection } = usePulse();
  const { values } = useSettings();
  const { report } = useReports();
  const minutes = values.get('RepInt') ?? '';
  const period = readInteger(minutes) ?? 15;
  useEffect(() => {
    if (connection !== 'ok') return;
    const read = () => {
      if (!document.hidden) reports.load(period);
    };
    read();
    const timer = setInterval(read, 10_000);
    return () => clearInterval(timer);
  }, [connection, period]);
  const camera = panel?.cameras[0].name ?? '';
  const perEntrance = useMemo(() => todayPerEntrance(report, camera), [report, camera]);
  return (
    <section class="card passages">
      <h2>{t.passages}</h2>
      <dl aria-label={t.since}>
        <Figure label={t.cameIn} value={cameIn} testid="came-in" />
        <Figure label={t.wentOut} value={wentOut} testid="went-out" />
      </dl>
      <p class="help">{t.since}</p>
      <ul class="ticker" aria-label={t.passages}>
        {passages.length === 0 && <li class="muted">{t.noPassage}</li>}
        {passages.map((passage) => (
          <li key={passage.number}>
            <time>{passage.time.toLocaleTimeString()}</time> {t.passage(passage.by)} {t.entranceHere(passage.entrance)}
          </li>
        ))}
      </ul>
      <h3>{t.perEntrance}</h3>
      {perEntrance && perEntrance.size > 0 ? (
        <table>
          <thead>
            <tr><th scope="col">{t.perEntranceAll}</th><th scope="col" class="number">{t.cameIn}</th><th scope="col" class="number">{t.wentOut}</th></tr>
          </thead>
          <tbody>
            {[...perEntrance].map(([entrance, sum]) => (
              <tr key={entrance}><th scope="row">{t.entrance(Number(entrance))}</th><td class="number">{sum.entries}</td><td class="number">{sum.exits}</td></tr>
            ))}
          </tbody>
        </table>
      ) : (
        <p class="muted">{t.noReport}</p>
      )}
      {minutes && <p class="help">{t.perEntranceNote(minutes)}</p>}
    </section>
  );
}

export function ageOf(index: number): string {
  const answered = pulse.answered.get(index);
  if (answered === undefined) return t.never;
  const seconds = Math.round((performance.now() - answered) / 1000);
  return seconds < 5 ? t.justNow : t.secondsAgo(seconds);
}

function Cameras() {
  const { panel } = usePulse();
  const cameras = panel?.cameras.filter((camera) => camera.index === 0 || camera.active) ?? [];
  return (
    <section class="card cameras">
      <h2>{t.cameras}</h2>
      <div class="scroll" tabIndex={0} role="region" aria-label={t.cameras}>
        <table data-testid="cameras">
          <thead>
            <tr><th scope="col">{t.camera}</th><th scope="col">{t.status}</th><th scope="col" class="number">{t.inAreas}</th><th scope="col" class="number">{t.age}</th></tr>
          </thead>
          <tbody>
            {cameras.map((camera) => (
              <tr key={camera.index}>
                <th scope="row">{camera.name || (camera.index === 0 ? texts.thisCamera : texts.follower(camera.index))}</th>
                <td><StatusBadge status={camera.status || texts.unknown} /></td>
                <td class="number">{number(answers(camera.status) ? camera.crowd : null)}</td>
                <td class="number">{ageOf(camera.index)}</td>
              </tr>
            ))}
          </tbody>
        </table>
      </div>
      {cameras.length === 1 && <p class="help">{t.noFollowers}</p>}
    </section>
  );
}

/** Asks for something to be done and says in words what came of it. */
function useDeed(): [string, (action: string, done: string) => Promise<void>] {
  const [said, setSaid] = useState('');
  const act = async (action: string, done: string) => {
    setSaid('');
    try {
      await ask(action);
      setSaid(done);
    } catch (error) {
      setSaid(t.failed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
    }
  };
  return [said, act];
}

function Resets() {
  const [question, setQuestion] = useState<Question | null>(null);
  const [said, act] = useDeed();
  const resets = [
    { action: 'reset_occupancy', button: t.resetHere, ask: t.resetHereAsk },
    { action: 'reset_total_occupancy', button: t.resetBuilding, ask: t.resetBuildingAsk },
  ];
  return (
    <section class="card resets">
      <h2>{t.reset}</h2>
      <div class="actions">
        {resets.map((reset) => (
          <button key={reset.action} type="button" onClick={() =>
            setQuestion({
              title: reset.ask,
              text: t.resetWarning,
              yes: reset.button,
              then: () => void act(reset.action, t.resetDone),
            })
          }>
            {reset.button}
          </button>
        ))}
      </div>
      <p role="status" data-testid="reset-said">{said}</p>
      {question && <Confirm question={question} onClose={() => setQuestion(null)} />}
    </section>
  );
}

const alerts = ['breached', 'area1', 'area2', 'area3', 'occupancy'] as const;

function Alerts() {
  const [said, act] = useDeed();
  return (
    <section class="card alerts">
      <h2>{t.alerts}</h2>
      <ul class="plain">
        {alerts.map((alert) => (
          <li key={alert}>
            <span>{t.alert[alert]}</span>
            <span class="actions">
              <button type="button" aria-label={t.raiseNamed(t.alert[alert])} onClick={() => act(`manual_${alert}_alert_on`, t.raised(t.alert[alert]))}>
                {t.raise}
              </button>
              <button type="button" aria-label={t.clearNamed(t.alert[alert])} onClick={() => act(`manual_${alert}_alert_off`, t.cleared(t.alert[alert]))}>
                {t.clear}
              </button>
            </span>
          </li>
        ))}
      </ul>
      <p role="status" data-testid="alert-said">{said}</p>
      <p class="help">{t.alertsNote}</p>
    </section>
  );
}
