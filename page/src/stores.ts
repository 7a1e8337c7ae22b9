import { Pulse } from './model/pulse';
import { ReportStore } from './model/report_store';
import { SettingsStore } from './model/settings_store';
import { useStore } from './model/store';

/* The page watches one camera: one of each. */

export const pulse = new Pulse();
export const settings = new SettingsStore();
export const reports = new ReportStore();

export const usePulse = () => useStore(pulse);
export const useSettings = () => useStore(settings);
export const useReports = () => useStore(reports);
