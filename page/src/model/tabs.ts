export const tabNames = ['live', 'areas', 'detection', 'reports', 'cameras', 'advanced'] as const;
export type TabName = (typeof tabNames)[number];
