import { useEffect } from 'preact/hooks';
import { reportMinutes } from './model/parameters';
import { Alerts } from './model/alerts';
import { AnswerStore } from './model/answers';
import { Before } from './model/before';
import { CameraTime } from './model/camera_time';
import { HandCount } from './model/hand_count';
import { HandRecords } from './model/hand_records';
import { Pulse } from './model/pulse';
import { isOfEntrances, recountSettings, RecountStore } from './model/recount';
import { ReportStore } from './model/report_store';
import { role } from './model/role';
import { SettingsStore } from './model/settings_store';
import { useStore } from './model/store';
import { Today } from './model/today';

/* The page watches one camera: one of each. */

export const alerts = new Alerts();
export const pulse = new Pulse((lines) => alerts.add(lines));
export const settings = new SettingsStore();
export const reports = new ReportStore();
export const today = new Today();
export const answers = new AnswerStore();
export const before = new Before();
export const cameraTime = new CameraTime();
export const handCount = new HandCount();
export const handRecords = new HandRecords();
export const recount = new RecountStore();

export const usePulse = () => useStore(pulse);
export const useSettings = () => useStore(settings);
export const useRole = () => useStore(role);
export const useHandCount = () => useStore(handCount);
export const useHandRecords = () => useStore(handRecords);
export const useReports = () => useStore(reports);

/** Loads a store whenever the camera is there again. */
function useEachTimeThere(store: { load(): Promise<void> }): void {
  const { connection, generation } = usePulse();
  useEffect(() => {
    if (connection === 'ok') void store.load();
  }, [connection, generation]);
}

/** The alerts of the last day; read anew whenever the camera is there again. */
export function useAlerts(): Alerts {
  useEachTimeThere(alerts);
  return useStore(alerts);
}

/** The camera's zone, asked for whenever the camera is there again. */
export function useCameraTime(): CameraTime {
  useEachTimeThere(cameraTime);
  return useStore(cameraTime);
}

/** How many minutes there are from one row of the reports to the next. */
export const usePeriod = () => reportMinutes(useSettings().loaded?.get('RepInt'));

/** Today's counts, asked for whenever somebody has come or gone, and every minute: midnight comes without anybody. */
export function useToday(): Today {
  const { connection, generation, cameIn, wentOut } = usePulse();
  useEffect(() => {
    if (connection !== 'ok') return;
    void today.load();
    const timer = setInterval(() => {
      if (!document.hidden) void today.load();
    }, 60_000);
    return () => clearInterval(timer);
  }, [connection, generation, cameIn, wentOut]);
  return useStore(today);
}

const kAnswersFresh = 300_000;

/** What people ask first, asked for every few minutes while it is looked at. */
export function useAnswers(): AnswerStore {
  const { connection, generation } = usePulse();
  useEffect(() => {
    if (connection !== 'ok') return;
    void answers.load();
    const timer = setInterval(() => {
      if (!document.hidden) void answers.load();
    }, kAnswersFresh);
    return () => clearInterval(timer);
  }, [connection, generation]);
  return useStore(answers);
}

/** What there was before the camera was started; asked for whenever it is there again. */
export function useBefore(): Before {
  useEachTimeThere(before);
  return useStore(before);
}

/** What the entrances would have counted as they are being drawn; null while nothing of them is changed. */
export function useRecount(): RecountStore | null {
  const { edits, values, size } = useSettings();
  const { connection } = usePulse();
  const isDrawn = connection === 'ok' && [...edits.keys()].some(isOfEntrances);
  const wanted = isDrawn ? recountSettings(values, size) : '';
  useEffect(() => {
    if (wanted) void recount.want(wanted);
    else recount.forget();
  }, [wanted]);
  const store = useStore(recount);
  return isDrawn ? store : null;
}
