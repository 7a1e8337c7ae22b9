import { ChoiceSetting, NumberSetting, SwitchSetting } from '../parts/fields';
import { SettingsFrame } from '../parts/settings_frame';
import { texts } from '../texts';

const t = texts.detection;

const classes = [
  'DetectPersons',
  'DetectBicycles',
  'DetectCars',
  'DetectMotorcycles',
  'DetectBuses',
  'DetectTrucks',
  'DetectTrains',
  'DetectBoats',
  'DetectAirplanes',
];

export function DetectionTab() {
  return (
    <SettingsFrame>
      {() => (
        <div class="cards flow">
          <fieldset class="card">
            <legend>{t.classes}</legend>
            <div class="grid">
              {classes.map((tag) => (
                <SwitchSetting key={tag} tag={tag} plain />
              ))}
            </div>
            <p class="help">{t.classesHelp}</p>
          </fieldset>
          <section class="card">
            <h2>{t.tracking}</h2>
            <NumberSetting tag="Sensitivity" step={0.01} />
            <NumberSetting tag="MaxDisappear" />
          </section>
          <section class="card">
            <h2>{t.areaAlert}</h2>
            <ChoiceSetting tag="AoiLogicComparison" helps={t.comparisonHelps} />
            <NumberSetting tag="MinNumberOfPeopleForTrigger" />
          </section>
          <section class="card">
            <h2>{t.occupancyAlert}</h2>
            <NumberSetting tag="Occupants" />
            <SwitchSetting tag="ResetByOccupanyCount" />
          </section>
        </div>
      )}
    </SettingsFrame>
  );
}
