import { useEffect } from 'preact/hooks';
import { reportMinutes } from './model/parameters';
import { Pulse } from './model/pulse';
import { ReportStore } from './model/report_store';
import { role } from './model/role';
import { SettingsStore } from './model/settings_store';
import { useStore } from './model/store';

/* The page watches one camera: one of each. */

export const pulse = new Pulse();
export const settings = new SettingsStore();
export const reports = new ReportStore();

export const usePulse = () => useStore(pulse);
export const useSettings = () => useStore(settings);
export const useRole = () => useStore(role);
export const useReports = () => useStore(reports);

/** The report, read again as often as the camera writes it, and how many minutes that are. */
export function useFreshReports(): [ReportStore, number] {
  const { connection } = usePulse();
  const minutes = reportMinutes(useSettings().loaded?.get('RepInt'));
  useEffect(() => {
    if (connection !== 'ok') return;
    const read = () => {
      if (!document.hidden) reports.load(minutes);
    };
    read();
    const timer = setInterval(read, 10_000);
    return () => clearInterval(timer);
  }, [connection, minutes]);
  return [useReports(), minutes];
}
