import { ranges } from '../model/rules';
import { ChoiceSetting, NumberSetting, SwitchSetting } from '../parts/fields';
import { SettingsFrame } from '../parts/settings_frame';
import { texts } from '../texts/en';

const t = texts.detection;

export function DetectionTab() {
  return (
    <SettingsFrame>
      {() => (
        <div class="cards flow">
          <fieldset class="card">
            <legend>{t.classes}</legend>
            <div class="grid">
              {Object.entries(t.class).map(([tag, label]) => <SwitchSetting key={tag} tag={tag} label={label} />)}
            </div>
            <p class="help">{t.classesHelp}</p>
          </fieldset>
          <section class="card">
            <h2>{t.tracking}</h2>
            <NumberSetting tag="Sensitivity" label={t.sensitivity} help={t.sensitivityHelp} range={ranges.Sensitivity} step={0.01} slider />
            <NumberSetting tag="MaxDisappear" label={t.maxDisappear} help={t.maxDisappearHelp} unit={t.seconds} range={ranges.MaxDisappear} />
          </section>
          <section class="card">
            <h2>{t.areaAlert}</h2>
            <ChoiceSetting tag="AoiLogicComparison" label={t.comparison}
              choices={t.comparisons.map((label, i) => ({ value: String(i), label, help: t.comparisonHelps[i] }))} />
            <NumberSetting tag="MinNumberOfPeopleForTrigger" label={t.threshold} help={t.thresholdHelp} unit={t.objects} range={ranges.MinNumberOfPeopleForTrigger} />
          </section>
          <section class="card">
            <h2>{t.occupancyAlert}</h2>
            <NumberSetting tag="Occupants" label={t.occupants} help={t.occupantsHelp} unit={t.objects} range={ranges.Occupants} />
            <SwitchSetting tag="ResetByOccupanyCount" label={t.resetByCount} help={t.resetByCountHelp} />
          </section>
        </div>
      )}
    </SettingsFrame>
  );
}
